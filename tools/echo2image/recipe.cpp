#include "recipe.h"

#include "digest.h"
#include "input_file.h"
#include "progress.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

namespace echo2image {

namespace {

namespace keyword {
constexpr char software[] = "Software";
constexpr char command[] = "Command";
constexpr char input[] = "Input";
constexpr char file[] = "Recording";
constexpr char seed[] = "Seed";
constexpr char frame[] = "Frame";
constexpr char input_digest[] = "Input SHA-256";
constexpr char sound_speed[] = "Sound speed in m/s";
constexpr char center_frequency[] = "Center frequency in Hz";
constexpr char detector[] = "Detector";
constexpr char taps[] = "Taps";
constexpr char decimation[] = "Decimation";
constexpr char bandwidth[] = "Bandwidth in Hz";
constexpr char reference[] = "Reference";
constexpr char dynamic_range[] = "Dynamic range in dB";
constexpr char pulse_inversion[] = "Pulse inversion";
constexpr char ramp_start[] = "Ramp start in samples";
constexpr char ramp_end[] = "Ramp end in samples";
constexpr char percent[] = "Percent taken away";
constexpr char upsampled[] = "Upsampled";
constexpr char interpolated[] = "Lines interpolated";
constexpr char smoothed[] = "Smoothed";
constexpr char filters[] = "Filters";
constexpr char second_frame[] = "Second frame";
constexpr char block_columns[] = "Block width";
constexpr char block_rows[] = "Block height";
constexpr char grid[] = "Grid";
constexpr char search_columns[] = "Search range across";
constexpr char search_rows[] = "Search range down";
constexpr char threshold[] = "Correlation threshold";
constexpr char width[] = "Width";
constexpr char scale[] = "Scale";
constexpr char pixel_digest[] = "Pixels SHA-256";
} // namespace keyword

constexpr char pulse_inversion_sum[] = "sum";
constexpr char pulse_inversion_blend[] = "blend";
constexpr char upsampled_full[] = "full";
constexpr char upsampled_fast[] = "fast";
constexpr char detector_general[] = "general";
constexpr char detector_fixed[] = "fixed-point";

// Shortest text that reads back as the same number.
template <class Number>
std::string text_of(Number value)
{
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

class RecipeReader
{
public:
    RecipeReader(const TextFields& text, const std::filesystem::path& picture) : text_(text), picture_(picture) {}

    const std::string* find(const char* name) const
    {
        const auto field = std::find_if(text_.begin(), text_.end(), [&](const auto& f) { return f.first == name; });
        return field != text_.end() ? &field->second : nullptr;
    }
    const std::string& required(const char* name) const
    {
        const std::string* value = find(name);
        if (value == nullptr)
            throw BadInput(picture_.string() + ": its recipe lacks \"" + name + "\"");
        return *value;
    }
    [[noreturn]] void reject(const char* name, const char* expected, const std::string& found) const
    {
        throw BadInput(name_of(picture_) + ": recipe: \"" + name + "\" must be " + expected + ", found " + in_quotes(found));
    }
    template <class Number>
    Number number(const char* name, Number least) const
    {
        const std::string& text = required(name);
        Number value{};
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool finite = static_cast<double>(value) <= std::numeric_limits<double>::max();
        if (error != std::errc() || end != text.data() + text.size() || !finite || !(value >= least))
            reject(name, "a number", text);
        return value;
    }
    bool yes_or_no(const char* name) const
    {
        const std::string& text = required(name);
        if (text != "yes" && text != "no")
            reject(name, "\"yes\" or \"no\"", text);
        return text == "yes";
    }
    bool yes(const char* name) const { return find(name) != nullptr && yes_or_no(name); }
    template <class Number>
    Number number_or_zero(const char* name, Number least) const
    {
        return find(name) != nullptr ? number<Number>(name, least) : Number{};
    }

private:
    const TextFields& text_;
    const std::filesystem::path& picture_;
};

} // namespace

std::vector<std::int16_t> read_frame(const Recording& recording, const Chain& chain, std::int64_t frame)
{
    return chain.needs_firings() ? recording.read_firings_i16(frame) : recording.read_frame_i16(frame);
}

FrameFilters filters_before(const Recording& recording, const Chain& chain, std::int64_t frame)
{
    FrameFilters filters = chain.filters();
    const std::int64_t count = std::min(frame, frames_before(chain.parameters().filters));
    Progress progress("frames before", count);
    for (std::int64_t earlier = frame - count; earlier < frame; ++earlier) {
        stop_when_interrupted();
        if (chain.has_envelope())
            filters.next(chain.grey(chain.envelope(read_frame(recording, chain, earlier))));
        else
            filters.next(chain.grey(recording.read_frame_u8(earlier)));
        progress.step();
    }
    return filters;
}

std::string program_version()
{
    return "echo2image " ECHO2IMAGE_VERSION;
}

std::string digest_of(const std::vector<std::int16_t>& samples)
{
    return sha256(samples.data(), samples.size() * sizeof samples[0]); // the processors utils_sse runs on are little-endian
}

std::string digest_of(const GreyImage& image)
{
    const std::uint32_t size[] = {static_cast<std::uint32_t>(image.width), static_cast<std::uint32_t>(image.height)};
    Sha256 sum;
    sum.add(size, sizeof size);
    sum.add(image.pixels.data(), image.pixels.size());
    if (std::any_of(image.marks.begin(), image.marks.end(), [](std::uint8_t mark) { return mark != 0; }))
        sum.add(image.marks.data(), image.marks.size());
    return sum.hex();
}

TextFields to_text(const Recipe& recipe)
{
    TextFields text = {{keyword::software, recipe.program}, {keyword::command, recipe.command}};
    if (recipe.input == Recipe::Input::synthetic) {
        text.emplace_back(keyword::input, "synthetic");
        text.emplace_back(keyword::seed, text_of(recipe.seed));
    } else {
        text.emplace_back(keyword::input, "recording");
        text.emplace_back(keyword::file, recipe.file);
        text.emplace_back(keyword::frame, text_of(recipe.frame));
    }
    text.emplace_back(keyword::input_digest, recipe.input_digest);
    const ChainParameters& chain = recipe.chain;
    const auto add_unless_zero = [&](const char* name, auto value) {
        if (value != 0)
            text.emplace_back(name, text_of(value));
    };
    add_unless_zero(keyword::sound_speed, chain.sound_speed);
    add_unless_zero(keyword::center_frequency, chain.center_frequency);
    if (chain.detector != DetectorKind::automatic)
        text.emplace_back(keyword::detector, chain.detector == DetectorKind::fixed ? detector_fixed : detector_general);
    add_unless_zero(keyword::taps, chain.taps);
    add_unless_zero(keyword::decimation, chain.decimation);
    add_unless_zero(keyword::bandwidth, chain.bandwidth);
    add_unless_zero(keyword::reference, chain.reference);
    add_unless_zero(keyword::dynamic_range, chain.dynamic_range);
    if (chain.rf.pulse_inversion == PulseInversion::sum)
        text.emplace_back(keyword::pulse_inversion, pulse_inversion_sum);
    if (chain.rf.pulse_inversion == PulseInversion::blend) {
        text.emplace_back(keyword::pulse_inversion, pulse_inversion_blend);
        text.emplace_back(keyword::ramp_start, text_of(chain.rf.ramp_start));
        text.emplace_back(keyword::ramp_end, text_of(chain.rf.ramp_end));
        text.emplace_back(keyword::percent, text_of(chain.rf.percent));
    }
    if (chain.rf.upsampling != Upsampling::none)
        text.emplace_back(keyword::upsampled, chain.rf.upsampling == Upsampling::fast ? upsampled_fast : upsampled_full);
    if (chain.rf.interpolate != 1)
        text.emplace_back(keyword::interpolated, text_of(chain.rf.interpolate));
    if (chain.smooth)
        text.emplace_back(keyword::smoothed, "yes");
    if (!chain.filters.empty())
        text.emplace_back(keyword::filters, to_text(chain.filters));
    if (recipe.motion) {
        const MotionOptions& options = recipe.motion->options;
        text.emplace_back(keyword::second_frame, text_of(recipe.motion->second_frame));
        text.emplace_back(keyword::block_columns, text_of(options.block_columns));
        text.emplace_back(keyword::block_rows, text_of(options.block_rows));
        text.emplace_back(keyword::grid, text_of(options.grid));
        text.emplace_back(keyword::search_columns, text_of(options.search_columns));
        text.emplace_back(keyword::search_rows, text_of(options.search_rows));
        text.emplace_back(keyword::threshold, text_of(options.threshold));
    }
    text.emplace_back(keyword::width, text_of(chain.width));
    text.emplace_back(keyword::scale, chain.scale ? "yes" : "no");
    text.emplace_back(keyword::pixel_digest, recipe.pixel_digest);
    return text;
}

Recipe recipe_of(const TextFields& text, const std::filesystem::path& picture)
{
    const RecipeReader reader(text, picture);
    const std::string* software = reader.find(keyword::software);
    if (software == nullptr || software->rfind("echo2image ", 0) != 0)
        throw BadInput(picture.string() + ": a picture made by echo2image is expected, found a PNG without its recipe");
    Recipe recipe;
    recipe.program = *software;
    recipe.command = reader.required(keyword::command);
    const std::string& input = reader.required(keyword::input);
    if (input == "synthetic") {
        recipe.input = Recipe::Input::synthetic;
        recipe.seed = reader.number<std::uint32_t>(keyword::seed, 0);
    } else if (input == "recording") {
        recipe.file = reader.required(keyword::file);
        recipe.frame = reader.number<std::int64_t>(keyword::frame, 0);
    } else {
        reader.reject(keyword::input, "\"recording\" or \"synthetic\"", input);
    }
    recipe.input_digest = reader.required(keyword::input_digest);
    recipe.chain.sound_speed = reader.number_or_zero<double>(keyword::sound_speed, 0);
    recipe.chain.center_frequency = reader.number_or_zero<double>(keyword::center_frequency, 0);
    if (const std::string* detector = reader.find(keyword::detector)) {
        if (*detector != detector_general && *detector != detector_fixed)
            reader.reject(keyword::detector, "\"general\" or \"fixed-point\"", *detector);
        recipe.chain.detector = *detector == detector_fixed ? DetectorKind::fixed : DetectorKind::general;
    }
    recipe.chain.taps = reader.number_or_zero<int>(keyword::taps, 1);
    recipe.chain.decimation = reader.number_or_zero<int>(keyword::decimation, 1);
    recipe.chain.bandwidth = reader.number_or_zero<double>(keyword::bandwidth, 0);
    recipe.chain.reference = reader.number_or_zero<float>(keyword::reference, 0);
    recipe.chain.dynamic_range = reader.number_or_zero<double>(keyword::dynamic_range, 0);
    if (const std::string* inversion = reader.find(keyword::pulse_inversion)) {
        if (*inversion == pulse_inversion_sum) {
            recipe.chain.rf.pulse_inversion = PulseInversion::sum;
        } else if (*inversion == pulse_inversion_blend) {
            recipe.chain.rf.pulse_inversion = PulseInversion::blend;
            recipe.chain.rf.ramp_start = reader.number<int>(keyword::ramp_start, 0);
            recipe.chain.rf.ramp_end = reader.number<int>(keyword::ramp_end, 0);
            recipe.chain.rf.percent = reader.number<int>(keyword::percent, 0);
        } else {
            reader.reject(keyword::pulse_inversion, "\"sum\" or \"blend\"", *inversion);
        }
    }
    if (const std::string* upsampling = reader.find(keyword::upsampled)) {
        if (*upsampling != upsampled_full && *upsampling != upsampled_fast)
            reader.reject(keyword::upsampled, "\"full\" or \"fast\"", *upsampling);
        recipe.chain.rf.upsampling = *upsampling == upsampled_fast ? Upsampling::fast : Upsampling::full;
    }
    if (reader.find(keyword::interpolated) != nullptr)
        recipe.chain.rf.interpolate = reader.number<int>(keyword::interpolated, 1);
    recipe.chain.smooth = reader.yes(keyword::smoothed);
    if (const std::string* filters = reader.find(keyword::filters)) {
        try {
            recipe.chain.filters = filters_of(*filters);
        } catch (const BadInput&) {
            reader.reject(keyword::filters, "filters such as \"median3, persist 12\"", *filters);
        }
    }
    if (reader.find(keyword::second_frame) != nullptr) {
        MotionRecipe& motion = recipe.motion.emplace();
        motion.second_frame = reader.number<std::int64_t>(keyword::second_frame, 0);
        motion.options.block_columns = reader.number<int>(keyword::block_columns, 1);
        motion.options.block_rows = reader.number<int>(keyword::block_rows, 1);
        motion.options.grid = reader.number<int>(keyword::grid, 1);
        motion.options.search_columns = reader.number<int>(keyword::search_columns, 0);
        motion.options.search_rows = reader.number<int>(keyword::search_rows, 0);
        motion.options.threshold = reader.number<double>(keyword::threshold, 0);
    }
    recipe.chain.width = reader.number<int>(keyword::width, 1);
    recipe.chain.scale = reader.yes_or_no(keyword::scale);
    recipe.pixel_digest = reader.required(keyword::pixel_digest);
    return recipe;
}

void write_picture(OutputFile& file, const GreyImage& image, Recipe recipe)
{
    recipe.program = program_version();
    recipe.pixel_digest = digest_of(image);
    write_png(file, image, to_text(recipe));
    file.finish();
}

void write_picture(const std::filesystem::path& path, const GreyImage& image, const Recipe& recipe)
{
    OutputFile file(path);
    write_picture(file, image, recipe);
    file.commit();
}

} // namespace echo2image
