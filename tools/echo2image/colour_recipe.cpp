#include "colour_recipe.h"

#include "digest.h"
#include "input_file.h"
#include "synthetic_flow.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <system_error>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

namespace keyword {
constexpr char shown[] = "Shown";
constexpr char firings[] = "Firings";
constexpr char filter[] = "Clutter filter";
constexpr char mixing[] = "Clutter mixing";
constexpr char average_lines[] = "Average lines";
constexpr char average_samples[] = "Average samples";
constexpr char repetition[] = "Pulse repetition frequency in Hz";
constexpr char unit[] = "Unit";
constexpr char map[] = "Colour map";
constexpr char baseline[] = "Baseline";
constexpr char least_power[] = "Least power in dB";
constexpr char greatest_power[] = "Greatest power in dB";
constexpr char greatest_spread[] = "Greatest spread";
constexpr char tissue_phase[] = "Tissue phase in rad";
constexpr char tissue_grey[] = "Tissue grey";
} // namespace keyword

struct QuantityName
{
    FlowQuantity quantity;
    const char* name;
};
constexpr QuantityName quantities[] = {
    {FlowQuantity::velocity, "velocity"}, {FlowQuantity::power, "power"}, {FlowQuantity::spread, "spread"}};

// Shortest text that reads back as the same number.
template <class Number>
std::string text_of(Number value)
{
    char text[64];
    return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

class Fields
{
public:
    Fields(const TextFields& text, const fs::path& picture) : text_(text), picture_(picture) {}

    const std::string& text(const char* name) const
    {
        const auto field = std::find_if(text_.begin(), text_.end(), [&](const auto& f) { return f.first == name; });
        if (field == text_.end())
            throw BadInput(picture_.string() + ": its recipe lacks \"" + name + "\"");
        return field->second;
    }
    template <class Number>
    Number number(const char* name, Number least, Number greatest) const
    {
        const std::string& found = text(name);
        Number value{};
        const auto [end, error] = std::from_chars(found.data(), found.data() + found.size(), value);
        if (error != std::errc() || end != found.data() + found.size() || !(value >= least && value <= greatest))
            reject(name, text_of(least) + " to " + text_of(greatest), found);
        return value;
    }
    [[noreturn]] void reject(const char* name, const std::string& expected, const std::string& found) const
    {
        throw BadInput(name_of(picture_) + ": recipe: \"" + name + "\" must be " + expected + ", found " + in_quotes(found));
    }

private:
    const TextFields& text_;
    const fs::path& picture_;
};

// What grey and colour recipes have in common goes through the grey one.
ChainParameters common(const ColourParameters& parameters)
{
    ChainParameters chain;
    chain.sound_speed = parameters.sound_speed;
    chain.center_frequency = parameters.center_frequency;
    chain.reference = parameters.reference;
    chain.dynamic_range = parameters.dynamic_range;
    chain.width = parameters.width;
    chain.scale = parameters.scale;
    return chain;
}

std::vector<std::uint8_t> rgb_of(const ColourImage& image)
{
    std::vector<std::uint8_t> rgb;
    rgb.reserve(3 * image.red.size());
    for (std::size_t i = 0; i < image.red.size(); ++i)
        rgb.insert(rgb.end(), {image.red[i], image.green[i], image.blue[i]});
    return rgb;
}

std::string digest_of_rgb(int width, int height, const std::vector<std::uint8_t>& rgb)
{
    const std::uint32_t size[] = {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
    Sha256 sum;
    sum.add(size, sizeof size);
    sum.add(rgb.data(), rgb.size());
    return sum.hex();
}

bool check(const char* what, const std::string& stated, const std::string& found)
{
    if (stated == found)
        std::printf("%s: equal, SHA-256 %s\n", what, found.c_str());
    else
        std::printf("%s: SHA-256 %s expected, found %s\n", what, stated.c_str(), found.c_str());
    return stated == found;
}

bool check_pixels(const ColourImage& made, const PngPicture& found)
{
    if (made.width != found.image.width || made.height != found.image.height) {
        std::printf("pixels: %d x %d expected, found %d x %d\n", made.width, made.height, found.image.width,
                    found.image.height);
        return false;
    }
    const std::vector<std::uint8_t> rgb = rgb_of(made);
    std::size_t differing = 0;
    std::size_t first = 0;
    for (std::size_t pixel = rgb.size() / 3; pixel-- > 0;)
        if (!std::equal(rgb.begin() + static_cast<std::ptrdiff_t>(3 * pixel),
                        rgb.begin() + static_cast<std::ptrdiff_t>(3 * pixel + 3),
                        found.rgb.begin() + static_cast<std::ptrdiff_t>(3 * pixel))) {
            ++differing;
            first = pixel;
        }
    if (differing == 0) {
        std::printf("pixels: all %d x %d equal\n", made.width, made.height);
        return true;
    }
    const std::size_t width = static_cast<std::size_t>(made.width);
    const std::uint8_t* a = rgb.data() + 3 * first;
    const std::uint8_t* b = found.rgb.data() + 3 * first;
    std::printf("pixels: %zu of %zu differ; first at column %zu, row %zu: red, green, blue %d %d %d expected, found %d %d %d\n",
                differing, rgb.size() / 3, first % width, first / width, a[0], a[1], a[2], b[0], b[1], b[2]);
    return false;
}

} // namespace

std::string digest_of(const ColourImage& image)
{
    return digest_of_rgb(image.width, image.height, rgb_of(image));
}

bool is_colour_recipe(const TextFields& text)
{
    return std::any_of(text.begin(), text.end(), [](const auto& field) { return field.first == keyword::filter; });
}

ColourRecipe colour_recipe_of(const TextFields& text, const fs::path& picture)
{
    const Fields fields(text, picture);
    ColourRecipe recipe;
    recipe.base = recipe_of(text, picture);
    ColourParameters& p = recipe.parameters;
    p.sound_speed = recipe.base.chain.sound_speed;
    p.center_frequency = recipe.base.chain.center_frequency;
    p.reference = recipe.base.chain.reference;
    p.dynamic_range = recipe.base.chain.dynamic_range;
    p.width = recipe.base.chain.width;
    p.scale = recipe.base.chain.scale;
    const std::string& shown = fields.text(keyword::shown);
    const auto quantity =
        std::find_if(std::begin(quantities), std::end(quantities), [&](const auto& q) { return shown == q.name; });
    if (quantity == std::end(quantities))
        fields.reject(keyword::shown, "velocity, power or spread", shown);
    p.quantity = quantity->quantity;
    p.firings = fields.number<int>(keyword::firings, fewest_firings, most_firings);
    const std::string& mixing = fields.text(keyword::mixing);
    if (mixing != "yes" && mixing != "no")
        fields.reject(keyword::mixing, "\"yes\" or \"no\"", mixing);
    p.flow.mix = mixing == "yes";
    p.flow.average_lines = fields.number<int>(keyword::average_lines, 1, most_averaged);
    p.flow.average_samples = fields.number<int>(keyword::average_samples, 1, most_averaged);
    try {
        p.flow.filter = clutter_filter_of(fields.text(keyword::filter));
        p.unit = speed_unit_of(fields.text(keyword::unit));
        p.map = velocity_map_of(fields.text(keyword::map));
    } catch (const BadInput& error) {
        throw BadInput(picture.string() + ": recipe: " + error.what());
    }
    if (p.unit != SpeedUnit::radians)
        p.pulse_repetition_frequency = fields.number(keyword::repetition, 1e-3, 1e9);
    p.baseline = fields.number(keyword::baseline, -1.0, 1.0);
    p.least_power = fields.number(keyword::least_power, 0.0, 1000.0);
    p.greatest_power = fields.number(keyword::greatest_power, 0.0, 1000.0);
    p.greatest_spread = fields.number(keyword::greatest_spread, 0.0, 1.0);
    p.tissue_phase = fields.number(keyword::tissue_phase, 0.0, 4.0);
    p.tissue_grey = fields.number(keyword::tissue_grey, 0, 255);
    return recipe;
}

void write_picture(OutputFile& file, const ColourImage& image, ColourRecipe recipe)
{
    const ColourParameters& p = recipe.parameters;
    recipe.base.program = program_version();
    recipe.base.pixel_digest = digest_of(image);
    recipe.base.chain = common(p);
    TextFields text = to_text(recipe.base);
    const auto add = [&](const char* name, const std::string& value) { text.emplace_back(name, value); };
    for (const QuantityName& quantity : quantities)
        if (quantity.quantity == p.quantity)
            add(keyword::shown, quantity.name);
    add(keyword::firings, text_of(p.firings));
    add(keyword::filter, to_string(p.flow.filter));
    add(keyword::mixing, p.flow.mix ? "yes" : "no");
    add(keyword::average_lines, text_of(p.flow.average_lines));
    add(keyword::average_samples, text_of(p.flow.average_samples));
    if (p.unit != SpeedUnit::radians)
        add(keyword::repetition, text_of(p.pulse_repetition_frequency));
    add(keyword::unit, to_string(p.unit));
    add(keyword::map, to_string(p.map));
    add(keyword::baseline, text_of(p.baseline));
    add(keyword::least_power, text_of(*p.least_power));
    add(keyword::greatest_power, text_of(*p.greatest_power));
    add(keyword::greatest_spread, text_of(p.greatest_spread));
    add(keyword::tissue_phase, text_of(*p.tissue_phase));
    add(keyword::tissue_grey, text_of(p.tissue_grey));
    write_png(file, image, text);
    file.finish();
}

EnsembleFrame read_ensembles(const Recording& recording, std::int64_t frame, int firings)
{
    const Description& d = recording.description();
    return {d.lines, d.samples, firings, recording.read_ensembles_i16(frame, firings)};
}

bool verify_colour(const PngPicture& picture, const fs::path& name, const fs::path& recording, const fs::path& data_folder)
{
    const ColourRecipe recipe = colour_recipe_of(picture.text, name);
    std::string input_digest;
    std::string failure; // why no picture could be made of an input that is not the original one
    ColourImage made;
    const auto repeat = [&](const Description& description, const auto& read) {
        ColourChain chain(description, recipe.parameters);
        const FlowMaps maps = chain.flow(read());
        chain.choose(maps);
        made = chain.picture(maps, recipe.parameters.quantity);
    };
    if (recipe.base.input == Recipe::Input::synthetic) {
        const SyntheticFlow flow = synthesise_flow(recipe.base.seed, recipe.parameters.firings);
        input_digest = digest_of(flow.frame.iq);
        repeat(flow.description, [&] { return flow.frame; });
    } else {
        const Recording opened = Recording::open(recording, data_folder);
        input_digest = opened.digest();
        try {
            repeat(opened.description(), [&] { return read_ensembles(opened, recipe.base.frame, recipe.parameters.firings); });
        } catch (const BadInput& error) {
            if (input_digest == recipe.base.input_digest)
                throw;
            failure = error.what();
        }
    }
    if (recipe.base.program != program_version())
        std::printf("program: made by %s, repeated by %s\n", recipe.base.program.c_str(), program_version().c_str());
    bool equal = check("input", recipe.base.input_digest, input_digest);
    equal = check("recipe", recipe.base.pixel_digest, digest_of_rgb(picture.image.width, picture.image.height, picture.rgb)) &&
            equal;
    if (failure.empty())
        return check_pixels(made, picture) && equal;
    std::printf("pixels: this input gives no such picture: %s\n", failure.c_str());
    return false;
}

} // namespace echo2image
