#include "recipe.h"

#include "bad_input.h"
#include "digest.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace echo2image {

namespace {

constexpr double usual_dynamic_range = 60;

namespace keyword {
constexpr char software[] = "Software";
constexpr char command[] = "Command";
constexpr char input[] = "Input";
constexpr char file[] = "Recording";
constexpr char seed[] = "Seed";
constexpr char frame[] = "Frame";
constexpr char input_digest[] = "Input SHA-256";
constexpr char center_frequency[] = "Center frequency in Hz";
constexpr char detector[] = "Detector";
constexpr char taps[] = "Taps";
constexpr char decimation[] = "Decimation";
constexpr char bandwidth[] = "Bandwidth in Hz";
constexpr char reference[] = "Reference";
constexpr char dynamic_range[] = "Dynamic range in dB";
constexpr char width[] = "Width";
constexpr char scale[] = "Scale";
constexpr char pixel_digest[] = "Pixels SHA-256";
} // namespace keyword

constexpr char detector_general[] = "general";
constexpr char detector_fixed[] = "fixed-point";

// Shortest text that reads back as the same number.
template <class Number>
std::string text_of(Number value)
{
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

bool positive(double value)
{
    return std::isfinite(value) && value > 0;
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
        throw BadInput(picture_.string() + ": recipe: \"" + name + "\" must be " + expected + ", found \"" + found + "\"");
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

Chain::Chain(const Description& description, const ChainParameters& wanted) : parameters_(wanted)
{
    const std::string where = description.source.string() + ": ";
    if (wanted.center_frequency != 0 && description.content != Content::rf)
        throw BadInput(where + "only RF takes --center-frequency, found " + to_string(description.content));
    if (description.content == Content::bmode) {
        if (wanted.taps != 0 || wanted.decimation != 0 || wanted.bandwidth != 0 || wanted.reference != 0 ||
            wanted.dynamic_range != 0 || wanted.detector != DetectorKind::automatic)
            throw BadInput(where + "holds grey values already; --taps, --decimation, --bandwidth, --general, --reference and "
                                   "--dynamic-range have nothing to act on");
        converter_.emplace(description.geometry, description.lines, description.samples, description.sample_spacing, 0.0,
                           wanted.width);
    } else {
        if (description.geometry.kind == Geometry::Kind::picture)
            throw BadInput(where + "echoes need the geometry of their lines, found rows and columns of a picture");
        if (wanted.reference != 0 && !positive(wanted.reference))
            throw BadInput("the reference must be a positive number, found " + text_of(wanted.reference));
        if (wanted.dynamic_range == 0)
            parameters_.dynamic_range = usual_dynamic_range;
        check_dynamic_range(parameters_.dynamic_range);

        Description effective = description;
        if (wanted.center_frequency != 0) {
            if (!positive(wanted.center_frequency))
                throw BadInput("the center frequency must be positive, found " + text_of(wanted.center_frequency) + " Hz");
            effective.center_frequency = wanted.center_frequency;
        }
        detector_.emplace(effective, DetectorOptions{wanted.taps, wanted.decimation, wanted.bandwidth, wanted.detector});
        parameters_.decimation = detector_->decimation();
        if (description.content == Content::rf) {
            parameters_.center_frequency = effective.center_frequency;
            parameters_.detector = detector_->kind();
            parameters_.taps = detector_->taps();
            parameters_.bandwidth = detector_->bandwidth();
        }
        converter_.emplace(description.geometry, description.lines, detector_->samples(), detector_->sample_spacing(), 0.0,
                           wanted.width);
    }
    parameters_.width = converter_->width();
    if (wanted.scale && !converter_->size_known())
        throw BadInput(where + "--scale needs pixels of known size; the description lacks column_spacing and row_spacing");
}

EnvelopeFrame Chain::envelope(const std::vector<std::int16_t>& frame, StageTimes* times) const
{
    return detector_->detect(frame, times);
}

GreyImage Chain::picture(const EnvelopeFrame& envelope, StageTimes* times) const
{
    return picture(compress(envelope, parameters_.reference, parameters_.dynamic_range, times), times);
}

GreyImage Chain::picture(const std::vector<std::uint8_t>& grey_lines, StageTimes* times) const
{
    GreyImage image = converter_->convert(grey_lines, times);
    return parameters_.scale ? with_scale(image, *converter_) : image;
}

float largest(const EnvelopeFrame& envelope)
{
    return envelope.values.empty() ? 0 : *std::max_element(envelope.values.begin(), envelope.values.end());
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
    add_unless_zero(keyword::center_frequency, chain.center_frequency);
    if (chain.detector != DetectorKind::automatic)
        text.emplace_back(keyword::detector, chain.detector == DetectorKind::fixed ? detector_fixed : detector_general);
    add_unless_zero(keyword::taps, chain.taps);
    add_unless_zero(keyword::decimation, chain.decimation);
    add_unless_zero(keyword::bandwidth, chain.bandwidth);
    add_unless_zero(keyword::reference, chain.reference);
    add_unless_zero(keyword::dynamic_range, chain.dynamic_range);
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
    recipe.chain.width = reader.number<int>(keyword::width, 1);
    const std::string& scale = reader.required(keyword::scale);
    if (scale != "yes" && scale != "no")
        reader.reject(keyword::scale, "\"yes\" or \"no\"", scale);
    recipe.chain.scale = scale == "yes";
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
