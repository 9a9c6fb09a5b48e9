// Reading recordings: layouts, formats, units, and every kind of input that cannot be used.
#include "bad_input.h"
#include "digest.h"
#include "real_data.h"
#include "recording.h"
#include "units.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>

using namespace echo2image;
namespace fs = std::filesystem;

namespace {

// A folder that goes away with the test.
class Folder
{
public:
    Folder()
    {
        std::random_device random;
        path_ = fs::temp_directory_path() / ("recording_test_" + std::to_string(random()));
        fs::create_directory(path_);
    }
    ~Folder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    fs::path operator/(const std::string& name) const { return path_ / name; }
    fs::path write(const std::string& name, const std::string& content) const
    {
        std::ofstream(path_ / name, std::ios::binary) << content;
        return path_ / name;
    }

private:
    fs::path path_;
};

std::string int16_bytes(const std::vector<int>& values)
{
    std::string bytes;
    for (const int value : values)
        bytes += {static_cast<char>(value & 255), static_cast<char>(value >> 8 & 255)};
    return bytes;
}

std::string list(const std::vector<std::string>& names)
{
    return std::accumulate(names.begin(), names.end(), std::string("["),
                           [](const auto& text, const auto& name) { return text + (text == "[" ? "" : ", ") + name; }) +
           ']';
}

std::string npy(const std::string& dictionary, const std::string& data, int version = 1)
{
    std::string file = "\x93NUMPY";
    file += {static_cast<char>(version), '\0', static_cast<char>(dictionary.size() & 255),
             static_cast<char>(dictionary.size() >> 8)};
    if (version > 1)
        file += {'\0', '\0'};
    return file + dictionary + data;
}

// The line that BadInput carries; empty when nothing was wrong.
std::string complaint(const std::function<void()>& action)
{
    try {
        action();
    } catch (const BadInput& error) {
        return error.what();
    }
    return "";
}

void expect_complaint(const std::string& line, const std::string& file, const std::vector<std::string>& words)
{
    EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    EXPECT_NE(line.find(file), std::string::npos) << line;
    for (const std::string& word : words)
        EXPECT_NE(line.find(word), std::string::npos) << "wanted: " << word << "\nfound:  " << line;
}

// A recording whose numbers tell their place, written in any order of its axes.
struct Pattern
{
    struct Axis
    {
        std::string name;
        int size;
    };
    std::vector<Axis> axes; // slowest first

    static int weight(const std::string& axis)
    {
        const std::vector<std::pair<std::string, int>> weights = {
            {"frame", 211}, {"line", 3571}, {"sample", 17}, {"firing", 5003}, {"component", 30011}};
        return std::find_if(weights.begin(), weights.end(), [&](const auto& entry) { return entry.first == axis; })->second;
    }
    std::string bytes() const
    {
        std::vector<int> values = {0};
        for (const Axis& axis : axes) {
            std::vector<int> finer;
            for (const int value : values)
                for (int i = 0; i < axis.size; ++i)
                    finer.push_back(value + i * weight(axis.name));
            values.swap(finer);
        }
        return int16_bytes(values);
    }
    std::string names() const
    {
        std::vector<std::string> names;
        for (const Axis& axis : axes)
            names.push_back(axis.name);
        return list(names);
    }
    std::string shape() const
    {
        std::vector<std::string> counts;
        for (const Axis& axis : axes)
            counts.push_back(std::to_string(axis.size));
        return list(counts);
    }
};

void expect_pattern(const Recording& recording, int components)
{
    const Description& d = recording.description();
    for (int frame = 0; frame < d.frames; ++frame) {
        Pattern expected{
            {{"line", static_cast<int>(d.lines)}, {"sample", static_cast<int>(d.samples)}, {"component", components}}};
        std::vector<std::int16_t> samples = recording.read_frame_i16(frame);
        std::vector<int> values;
        for (const std::int16_t sample : samples)
            values.push_back(sample - frame * Pattern::weight("frame"));
        EXPECT_TRUE(int16_bytes(values) == expected.bytes()) << "frame " << frame << " of " << list(d.axes);

        expected.axes.insert(expected.axes.begin() + 1, {"firing", static_cast<int>(d.firings)});
        samples = recording.read_firings_i16(frame);
        values.clear();
        for (const std::int16_t sample : samples)
            values.push_back(sample - frame * Pattern::weight("frame"));
        EXPECT_TRUE(int16_bytes(values) == expected.bytes()) << "all firings of frame " << frame << " of " << list(d.axes);
    }
}

TEST(Recording, ReadsAxesInAnyOrder)
{
    const Folder folder;
    Pattern pattern{{{"component", 2}, {"firing", 2}, {"frame", 3}, {"line", 4}, {"sample", 5}}};
    const std::string physics = "content: iq\nsample_spacing: 0.1mm\nvalid_samples: 4\n"
                                "geometry: {kind: linear, line_pitch: 0.3 mm}\n";
    const auto by_name = [](const Pattern::Axis& a, const Pattern::Axis& b) { return a.name < b.name; };
    do {
        const std::string data = pattern.bytes();
        const std::string axes = "axes: " + pattern.names() + "\n";
        folder.write("a.raw", "header_" + data);
        const Recording raw = Recording::open(folder.write(
            "a.yml", physics + axes + "file: a.raw\ntype: int16\nheader_bytes: 7\nshape: " + pattern.shape() + "\n"));
        EXPECT_EQ(raw.description().frames, 3);
        EXPECT_EQ(raw.description().firings, 2);
        EXPECT_EQ(raw.description().samples, 4);
        expect_pattern(raw, 2);

        // The same numbers as a NumPy file; in Fortran order they are those of the array with all axes reversed.
        std::string shape = pattern.shape();
        std::replace(shape.begin(), shape.end(), '[', '(');
        std::replace(shape.begin(), shape.end(), ']', ')');
        folder.write("b.yml", physics + axes);
        expect_pattern(Recording::open(folder.write(
                           "b.npy", npy("{'descr': '<i2', 'fortran_order': False, 'shape': " + shape + ", }\n", data))),
                       2);
        Pattern reversed = pattern;
        std::reverse(reversed.axes.begin(), reversed.axes.end());
        expect_pattern(Recording::open(folder.write(
                           "b.npy", npy("{\"shape\": " + shape + ",'fortran_order':True,'descr':'<i2'}", reversed.bytes(), 2))),
                       2);
    } while (!HasFailure() && std::next_permutation(pattern.axes.begin(), pattern.axes.end(), by_name));
}

TEST(Recording, ReadsLargeFramesInPieces)
{
    const Folder folder;
    // Lines longer than a block; planes longer than a block; steps of the slowest axis that share a block.
    const std::vector<Pattern> patterns = {
        {{{"line", 2}, {"sample", 400001}, {"frame", 2}}},
        {{{"sample", 1501}, {"line", 250}, {"frame", 3}}},
        {{{"frame", 2}, {"sample", 1253}, {"line", 500}}},
    };
    for (const Pattern& pattern : patterns) {
        folder.write("a.raw", pattern.bytes());
        expect_pattern(
            Recording::open(folder.write("a.yml", "file: a.raw\ncontent: rf\ntype: int16\nsampling_frequency: 20 MHz\n"
                                                  "geometry: {kind: linear, line_pitch: 0.3 mm}\naxes: " +
                                                      pattern.names() + "\nshape: " + pattern.shape() + "\n")),
            1);
    }
}

TEST(Recording, ReadsBeyondFourGigabytes)
{
    const Folder folder;
    constexpr std::uint64_t header = 5000000000;
    std::error_code error;
    folder.write("a.raw", "");
    fs::resize_file(folder / "a.raw", header, error); // a hole; takes no room
    if (error)
        GTEST_SKIP() << "no file of 5 GB: " << error.message();
    std::ofstream(folder / "a.raw", std::ios::binary | std::ios::app) << "ABCDEF";
    const Recording recording =
        Recording::open(folder.write("a.yml", "file: a.raw\ncontent: bmode\ntype: uint8\naxes: [frame, column, row]\n"
                                              "shape: [1, 3, 2]\nheader_bytes: 5000000000\n"));
    EXPECT_EQ(recording.read_frame_u8(0), (std::vector<std::uint8_t>{'A', 'C', 'E', 'B', 'D', 'F'}));
}

TEST(Recording, KnowsEveryGeometry)
{
    const Folder folder;
    folder.write("a.raw", int16_bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    const auto open = [&](const std::string& more) {
        return Recording::open(folder.write("a.yml", "file: a.raw\ncontent: rf\ntype: int16\naxes: [line, sample]\n"
                                                     "shape: [5, 2]\nsampling_frequency: 20MHz\nsound_speed: 1500\n" +
                                                         more));
    };
    const double degree = std::acos(-1.0) / 180;
    const Description linear = open("geometry: {kind: linear, line_pitch: 0.2mm, start_depth: 5 mm}").description();
    EXPECT_DOUBLE_EQ(linear.sample_spacing, 37.5e-6);
    EXPECT_DOUBLE_EQ(linear.geometry.first_line, -0.4e-3); // centred unless stated
    EXPECT_DOUBLE_EQ(linear.geometry.start_depth, 5e-3);
    const Geometry steered =
        open("geometry: {kind: steered, line_pitch: -200um, first_line: 1 cm, steering: -15 deg}").description().geometry;
    EXPECT_DOUBLE_EQ(steered.line_pitch, -0.2e-3);
    EXPECT_DOUBLE_EQ(steered.first_line, 0.01);
    EXPECT_DOUBLE_EQ(steered.steering, -15 * degree);
    const Geometry sector = open("geometry: {kind: sector, opening_angle: 80 deg, apex_radius: 0}").description().geometry;
    EXPECT_DOUBLE_EQ(sector.first_angle, -40 * degree);
    EXPECT_DOUBLE_EQ(sector.angle_step, 20 * degree);
    const Geometry curved =
        open("geometry: {kind: curved, angle_step: 0.1, first_angle: -10 deg, apex_radius: 6cm}").description().geometry;
    EXPECT_DOUBLE_EQ(curved.first_angle, -10 * degree);
    EXPECT_DOUBLE_EQ(curved.angle_step, 0.1);
    EXPECT_DOUBLE_EQ(curved.apex_radius, 0.06);

    const Recording silent = open("offset: 54.6\ndead_lines: [4, 0..1, 1]\ngeometry: {kind: linear, line_pitch: 0.2mm}");
    EXPECT_EQ(silent.description().dead_lines, (std::vector<std::int64_t>{0, 1, 4}));
    EXPECT_EQ(silent.read_frame_i16(0), (std::vector<std::int16_t>{55, 55, 55, 55, 5, 6, 7, 8, 55, 55}));
}

TEST(MetaImage, ReadsBothFormsAndTheUltrasoundFields)
{
    struct Case
    {
        std::string fields;
        std::string description; // beside it, if any
        std::string axes;
        std::vector<int> first_frame; // of the numbers 0, 1, 2 ...
        double row_spacing = 0;       // millimetres
        double column_spacing = 0;
    };
    const std::string physics = "sampling_frequency: 20 MHz\ngeometry: {kind: linear, line_pitch: 1 mm}\n";
    const std::string rf = "ElementType = MET_SHORT\nUltrasoundImageType = RF_REAL\n";
    const std::vector<Case> cases = {
        {"ElementType = MET_UCHAR\nUltrasoundImageType = BRIGHTNESS\nUltrasoundImageOrientation = MFA\nDimSize = 2 3 1\n"
         "ElementSpacing = 1 1 1\n"
         "NDims = 3\n",
         "",
         "[frame, row, column]",
         {0, 1, 2, 3, 4, 5}},
        {"ElementType = MET_UCHAR\nUltrasoundImageType = BRIGHTNESS\nUltrasoundImageOrientation = FU\nDimSize = 3 2\n"
         "ElementSpacing = 0.5 0.25\n"
         "NDims = 2\n",
         "",
         "[column, row]",
         {0, 3, 1, 4, 2, 5},
         0.5,
         0.25},
        {"ElementType = MET_UCHAR\nUltrasoundImageType = BRIGHTNESS\nUltrasoundImageOrientation = UF\nDimSize = 3 2\n"
         "ElementSpacing = 0.5 0.25\nNDims = 2\n",
         "",
         "[row, column]",
         {0, 1, 2, 3, 4, 5},
         0.25,
         0.5},
        {rf + "UltrasoundImageOrientation = FM\nDimSize = 3 2 2\nNDims = 3\n",
         physics,
         "[frame, line, sample]",
         {0, 1, 2, 3, 4, 5}},
        {rf + "UltrasoundImageOrientation = MF\nDimSize = 2 3\nNDims = 2\n", physics, "[sample, line]", {0, 2, 4, 1, 3, 5}},
        {"ElementType = MET_SHORT\nUltrasoundImageType = RF_IQ_LINE\nUltrasoundImageOrientation = FM\nDimSize = 4 2\n"
         "NDims = 2\n",
         physics,
         "[line, sample, component]",
         {0, 1, 2, 3, 4, 5, 6, 7}},
        {"ElementType = MET_SHORT\nUltrasoundImageType = RF_I_LINE_Q_LINE\nUltrasoundImageOrientation = FM\nDimSize = 3 4\n"
         "NDims = 2\n",
         physics,
         "[line, component, sample]",
         {0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11}},
        {"ElementType = MET_SHORT\nElementNumberOfChannels = 2\nDimSize = 2 2\nNDims = 2\n",
         physics + "content: iq\naxes: [line, sample, component]\n",
         "[line, sample, component]",
         {0, 1, 2, 3, 4, 5, 6, 7}},
    };
    const Folder folder;
    for (const Case& c : cases) {
        const bool bytes = c.fields.find("UCHAR") != std::string::npos;
        const bool two_frames = c.fields.find("DimSize = 3 2 2") != std::string::npos;
        std::vector<int> numbers(c.first_frame.size() * (two_frames ? 2 : 1));
        std::iota(numbers.begin(), numbers.end(), 0);
        const std::string data = bytes ? std::string(numbers.begin(), numbers.end()) : int16_bytes(numbers);
        if (c.description.empty())
            fs::remove(folder / "a.yml");
        else
            folder.write("a.yml", c.description);
        folder.write("a.dat", "12345" + data);
        const std::string start = "ObjectType = Image\r\n" + c.fields;
        for (const auto& [name, content] :
             {std::pair<std::string, std::string>{"a.mha", start + "ElementDataFile = LOCAL\n" + data},
              {"a.mhd", start + "HeaderSize = 5\nElementDataFile = a.dat"},
              {"a.mhd", start + "HeaderSize = -1\nElementDataFile = a.dat\n"}}) {
            const Recording recording = Recording::open(folder.write(name, content));
            EXPECT_EQ(list(recording.description().axes), c.axes);
            if (bytes) {
                EXPECT_EQ(recording.read_frame_u8(0), std::vector<std::uint8_t>(c.first_frame.begin(), c.first_frame.end()));
            } else {
                EXPECT_EQ(recording.read_frame_i16(0), std::vector<std::int16_t>(c.first_frame.begin(), c.first_frame.end()));
            }
            EXPECT_DOUBLE_EQ(recording.description().geometry.row_spacing, c.row_spacing / 1000);
            EXPECT_DOUBLE_EQ(recording.description().geometry.column_spacing, c.column_spacing / 1000);
            if (two_frames) {
                EXPECT_EQ(recording.read_frame_i16(1).front(), 6);
            }
        }
    }
}

TEST(MetaImage, NeedsNoDescriptionForItsLayout)
{
    const Folder folder;
    const std::string header = "NDims = 2\nDimSize = 4 2\nElementType = MET_SHORT\nUltrasoundImageType = RF_IQ_LINE\n"
                               "UltrasoundImageOrientation = FM\nElementDataFile = a.raw\n";
    const std::string data = int16_bytes({1, 2, 3, 4, 5, 6, 7, 8});
    const fs::path file = folder.write("a.mhd", header);
    folder.write("a.raw", data);
    const Recording recording = Recording::open(file, "", Need::layout);
    EXPECT_FALSE(recording.description().geometry_known);
    EXPECT_EQ(recording.description().sample_spacing, 0);
    EXPECT_NE(describe(recording).find("geometry              not stated"), std::string::npos) << describe(recording);
    EXPECT_EQ(recording.digest(), sha256((data + header).data(), data.size() + header.size()));
    expect_complaint(complaint([&] { Recording::open(file); }), "a.mhd", {"geometry", "a.yml"});
    const std::string description = "geometry: {kind: linear, line_pitch: 1 mm}\n";
    folder.write("a.yml", description);
    expect_complaint(complaint([&] { Recording::open(file); }), "a.yml", {"sampling_frequency", "sample_spacing"});
    folder.write("a.yml", description + "sample_spacing: 0.1 mm");
    EXPECT_EQ(Recording::open(file).digest(),
              sha256_of_file(folder.write("all", data + header + description + "sample_spacing: 0.1 mm")));
}

TEST(Recording, LooksForItsDataWhereAsked)
{
    const Folder folder;
    fs::create_directories(folder / "elsewhere/sub");
    const fs::path file =
        folder.write("a.yml", "file: sub/a.raw\ncontent: bmode\ntype: uint8\naxes: [row, column]\nshape: [1, 1]\n");
    folder.write("elsewhere/sub/a.raw", "E");
    EXPECT_EQ(Recording::open(file, folder / "elsewhere").read_frame_u8(0).front(), 'E');
    fs::create_directory(folder / "sub");
    folder.write("sub/a.raw", "B");
    EXPECT_EQ(Recording::open(file).read_frame_u8(0).front(), 'B');
    EXPECT_EQ(Recording::open(file, folder / "elsewhere").read_frame_u8(0).front(), 'E');
    fs::remove(folder / "elsewhere/sub/a.raw");
    expect_complaint(complaint([&] { Recording::open(file, folder / "elsewhere"); }), "sub/a.raw",
                     {"expected a file", "nothing"});
}

// One good description; each case changes a line of it or adds one.
TEST(BadInput, InDescriptions)
{
    struct Case
    {
        std::string key;  // the line that starts with it goes
        std::string line; // and this comes instead
        std::vector<std::string> words;
    };
    const std::vector<Case> cases = {
        {"content", "", {"content", "rf, iq or bmode", "nothing"}},
        {"content", "content: RF", {"content", "rf, iq or bmode", "\"RF\""}},
        {"content", "content: bmode", {"type", "uint8", "int16"}},
        {"content", "content: iq", {"axes", "component", "[frame, line, sample]"}},
        {"type", "", {"type", "int16 or uint8", "nothing"}},
        {"type", "type: float32", {"type", "int16 or uint8", "float32"}},
        {"type", "type: uint8", {"type", "int16 for content rf", "uint8"}},
        {"type", "type: [int16]", {"type", "a list"}},
        {"axes", "", {"axes", "[2, 3, 4]", "nothing"}},
        {"axes", "axes: [frame, line]", {"axes", "3 axes", "[frame, line]"}},
        {"axes", "axes: [frame, line, line]", {"axes", "once", "[frame, line, line]"}},
        {"axes", "axes: [frame, beam, sample]", {"axes", "line", "beam"}},
        {"axes", "axes: [frame, row, column]", {"axes", "line and sample", "[frame, row, column]"}},
        {"axes", "axes: line", {"axes", "a list of names", "\"line\""}},
        {"axes", "axes: []", {"axes", "an empty list"}},
        {"shape", "", {"shape", "a list of whole numbers", "nothing"}},
        {"shape", "shape: [2, 3]", {"axes", "2 axes", "[frame, line, sample]"}},
        {"shape", "shape: [2, 0, 4]", {"shape", "from 1", "\"0\""}},
        {"shape", "shape: [2, -3, 4]", {"shape", "\"-3\""}},
        {"shape", "shape: [2, 3.5, 4]", {"shape", "a whole number", "\"3.5\""}},
        {"shape", "shape: [2, 99999999999999999999, 4]", {"shape", "a whole number", "\"99999999999999999999\""}},
        {"shape", "shape: [2, 1000000000000, 1000000000000]", {"shape", "at most", "1000000000000"}},
        {"shape", "shape: [2, 65536, 65536]", {"shape", "2147483647 elements per frame", "4294967296"}},
        {"shape", "shape: [2, 3, 5]", {"a.raw", "60 bytes", "found 48"}},
        {"shape", "shape: [2, 3, 3]", {"a.raw", "36 bytes", "found 48"}},
        {"header_bytes", "header_bytes: 1", {"a.raw", "49 bytes", "1 of header", "found 48"}},
        {"header_bytes", "header_bytes: -1", {"header_bytes", "from 0", "\"-1\""}},
        {"header_bytes", "header_bytes: 9223372036854775807", {"header_bytes", "9223372036854775807"}},
        {"valid_samples", "valid_samples: 5", {"valid_samples", "1 to 4", "5"}},
        {"valid_samples", "valid_samples: 0", {"valid_samples", "\"0\""}},
        {"dead_lines", "dead_lines: 1..3", {"dead_lines", "0 to 2", "3"}},
        {"dead_lines", "dead_lines: [0, 9223372036854775807]", {"dead_lines", "0 to 2"}},
        {"dead_lines", "dead_lines: 2..1", {"dead_lines", "1..15", "\"2..1\""}},
        {"dead_lines", "dead_lines: [[1]]", {"dead_lines", "a list"}},
        {"sampling", "", {"sampling_frequency", "20 MHz", "nothing"}},
        {"sampling", "sampling_frequency:", {"sampling_frequency", "20 MHz", "nothing"}},
        {"sampling", "sampling_frequency: 0 Hz", {"sampling_frequency", "10 kHz", "\"0 Hz\""}},
        {"sampling", "sampling_frequency: -20 MHz", {"sampling_frequency", "\"-20 MHz\""}},
        {"sampling", "sampling_frequency: 20", {"sampling_frequency", "10 kHz", "\"20\""}},
        {"sampling", "sampling_frequency: 2 GHz", {"sampling_frequency", "to 1 GHz", "\"2 GHz\""}},
        {"sampling", "sampling_frequency: nan", {"sampling_frequency", "\"nan\""}},
        {"sampling", "sampling_frequency: .inf", {"sampling_frequency", "\".inf\""}},
        {"sampling", "sampling_frequency: 20 mm", {"sampling_frequency", "a frequency", "\"20 mm\""}},
        {"sampling", "sampling_frequency: 20 Mhz", {"sampling_frequency", "a frequency", "\"20 Mhz\""}},
        {"sampling", "sampling_frequency: {value: 20}", {"sampling_frequency", "a map"}},
        {"sampling", "sample_spacing: 0.1 mm", {"sampling_frequency", "nothing"}},
        {"", "sample_spacing: 0.1 mm", {"sample_spacing", "either", "both"}},
        {"", "sound_speed: 0", {"sound_speed", "100 m/s", "\"0\""}},
        {"", "offset: 1e9", {"offset", "32767", "\"1e9\""}},
        {"", "center_frequency: 5 ", {"center_frequency", "\"5\""}},
        {"", "demodulation_frequency: 5 MHz", {"demodulation_frequency", "iq only", "rf"}},
        {"", "dynamic_range: 60 dB", {"dynamic_range", "bmode only", "rf"}},
        {"", "frame_rate: 0", {"frame_rate", "\"0\""}},
        {"", "title: \"two\\nlines\"", {"title", "one line", "two\\x0alines"}},
        {"", "sampling_frequncy: 20 MHz", {"line 9", "sampling_frequency", "\"sampling_frequncy\""}},
        {"", "content: rf", {"line 9", "once", "line 2"}},
        {"", "[a, b]: c", {"line 9", "key", "a list"}},
        {"", "title: [unclosed", {"line 10", "YAML", "this error"}},
        {"", "title: \x01", {"text", "\\x01"}},
        {"", "--- {}", {"one YAML document", "more"}},
        {"geometry", "", {"geometry", "kind: linear", "nothing"}},
        {"geometry", "geometry: linear", {"geometry", "a map", "\"linear\""}},
        {"geometry", "geometry: {}", {"geometry.kind", "nothing"}},
        {"geometry", "geometry: {kind: round}", {"geometry.kind", "sector", "\"round\""}},
        {"geometry", "geometry: {kind: picture}", {"geometry.kind", "a kind of lines", "picture"}},
        {"geometry", "geometry: {kind: linear}", {"geometry.line_pitch", "nothing"}},
        {"geometry", "geometry: {kind: linear, line_pitch: 0}", {"geometry.line_pitch", "at least 0.001 mm"}},
        {"geometry", "geometry: {kind: linear, line_pitch: 0.3}", {"geometry.line_pitch", "50 mm", "\"0.3\""}},
        {"geometry", "geometry: {kind: linear, line_pitch: 1mm, apex_radius: 1cm}", {"line 8", "known", "apex_radius"}},
        {"geometry", "geometry: {kind: linear, line_pitch: 1mm, start_depth: -1mm}", {"geometry.start_depth", "-1mm"}},
        {"geometry", "geometry: {kind: steered, line_pitch: 1mm}", {"geometry.steering", "nothing"}},
        {"geometry", "geometry: {kind: steered, line_pitch: 1mm, steering: 15}", {"geometry.steering", "85 deg", "\"15\""}},
        {"geometry", "geometry: {kind: sector, apex_radius: 0}", {"angle_step or opening_angle", "neither"}},
        {"geometry", "geometry: {kind: sector, apex_radius: 0, angle_step: 1deg, opening_angle: 2deg}", {"both"}},
        {"geometry", "geometry: {kind: sector, opening_angle: 80 deg}", {"geometry.apex_radius", "nothing"}},
        {"geometry", "geometry: {kind: sector, opening_angle: 80, apex_radius: 0}", {"geometry.opening_angle", "\"80\""}},
        {"geometry", "geometry: {kind: sector, angle_step: 100deg, first_angle: 0, apex_radius: 0}", {"180 deg", "200 deg"}},
        {"geometry", "geometry: {kind: curved, opening_angle: 80 deg, apex_radius: 0}", {"geometry.apex_radius", "above 0"}},
        {"file", "", {"file", "the name of the data file", "nothing"}},
        {"file", "file: absent.raw", {"file", "\"absent.raw\"", "--data", "UTILS_SSE_DATA"}},
        {"file", "file: .", {"a file", "a folder"}},
        {"file", "file: a.npy", {"a.npy", "NumPy"}},
    };
    const Folder folder;
    folder.write("a.raw", std::string(48, 'x'));
    folder.write("a.npy", std::string(48, 'x'));
    const std::vector<std::string> good = {"file: a.raw",
                                           "content: rf",
                                           "type: int16",
                                           "axes: [frame, line, sample]",
                                           "shape: [2, 3, 4]",
                                           "center_frequency: 5e6",
                                           "sampling_frequency: 20 MHz",
                                           "geometry: {kind: linear, line_pitch: 0.3 mm}"};
    const auto text_of = [&](const Case& c) {
        std::string text;
        bool replaced = false;
        for (const std::string& line : good) {
            const bool here = !c.key.empty() && line.rfind(c.key, 0) == 0;
            text += (here ? c.line : line) + "\n";
            replaced = replaced || here;
        }
        return replaced ? text : text + c.line + "\n";
    };
    ASSERT_EQ(complaint([&] { Recording::open(folder.write("a.yml", text_of({}))).read_frame_i16(1); }), "");
    for (const Case& c : cases) {
        std::string text = text_of(c);
        if (c.line.rfind("center_frequency", 0) == 0)
            text.erase(text.find("center_frequency: 5e6\n"), 22);
        const fs::path file = folder.write("a.yml", text);
        expect_complaint(complaint([&] { Recording::open(file); }), (folder / "").string(), c.words);
    }
    for (const auto& [text, word] : {std::pair<std::string, std::string>{"", "an empty file"},
                                     {"# nothing\n", "an empty file"},
                                     {"- a\n- b\n", "a list"},
                                     {", a: b", "one YAML document"},
                                     {"just words", "\"just words\""},
                                     {std::string(2000000, ' '), "2000000"},
                                     {std::string(5000, '['), "YAML"}})
        expect_complaint(complaint([&, t = text] { Recording::open(folder.write("a.yml", t)); }), "a.yml", {word});
    expect_complaint(complaint([&] { Recording::open(folder / "none.yml"); }), "none.yml", {"a file", "nothing"});
    expect_complaint(complaint([&] { Recording::open(folder / ""); }), "recording_test", {".npy", "found"});
    expect_complaint(complaint([&] { Recording::open(folder.write("a\n.tif", "")); }), "a\\x0a.tif", {".yml", "\".tif\""});
    const Recording recording = Recording::open(folder.write("a.yml", text_of({})));
    expect_complaint(complaint([&] { recording.read_frame_i16(2); }), "a.yml", {"frame", "0 to 1", "2"});
    fs::resize_file(folder / "a.raw", 40);
    expect_complaint(complaint([&] { recording.read_frame_i16(1); }), "a.raw", {"24 bytes at byte 24", "ends"});
}

TEST(BadInput, InDataFiles)
{
    const std::string dictionary = "{'descr': '<i2', 'fortran_order': False, 'shape': (2, 3), }";
    const std::string data(12, 'x');
    const auto with = [](std::string text, const std::string& part, const std::string& other) {
        return text.replace(text.find(part), part.size(), other);
    };
    const std::string header = "NDims = 2\nDimSize = 3 2\nElementType = MET_SHORT\nUltrasoundImageType = RF_REAL\n"
                               "UltrasoundImageOrientation = FM\nElementDataFile = LOCAL\n";
    struct Case
    {
        std::string file;
        std::string content;
        std::vector<std::string> words;
    };
    const std::vector<Case> cases = {
        {"a.npy", "", {"a NumPy file", "\"\""}},
        {"a.npy", "\x93NUMPX" + dictionary, {"a NumPy file", "NUMPX"}},
        {"a.npy", npy(dictionary, data, 4), {"version", "1, 2 or 3", "found 4"}},
        {"a.npy", npy(dictionary, data).substr(0, 40), {"header", "at most 30 bytes", "found 59"}},
        {"a.npy", "\x93NUMPY\x02" + std::string("\0\xff\xff\xff\xff", 5) + dictionary, {"header", "4294967295"}},
        {"a.npy", npy(dictionary, data + "x"), {"81 bytes", "2 x 3 x 2", "found 82"}},
        {"a.npy", npy(dictionary, data.substr(1)), {"81 bytes", "found 80"}},
        {"a.npy", npy(with(dictionary, "<i2", ">i2"), data), {"descr", "<i2", "\">i2\"", "astype"}},
        {"a.npy", npy(with(dictionary, "<i2", "<f4"), data), {"descr", "\"<f4\""}},
        {"a.npy", npy(with(dictionary, "'<i2'", "[('a', '<i2')]"), data), {"descr", "[('a', '<i2')]"}},
        {"a.npy", npy(with(dictionary, "<i2", "|u1"), data), {"type", "int16", "uint8"}},
        {"a.npy", npy(with(dictionary, "False", "Maybe"), data), {"fortran_order", "Maybe"}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "(2, 0)"), data), {"shape", "positive", "(2, 0)"}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "(2, 3"), data), {"header", "\"}\""}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "[2, 3]"), data), {"shape", "a tuple", "[2, 3]"}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "(2 3)"), data), {"shape", "(2 3)"}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "(2,)"), data), {"axes", "1 axes [2]", "[line, sample]"}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "()"), data), {"axes", "0 axes", "[line, sample]"}},
        {"a.npy", npy(with(dictionary, "(2, 3)", "(3037000500, 3037000500)"), data), {"shape", "3037000500"}},
        {"a.npy", npy(with(dictionary, "'descr'", "'other'"), data), {"descr", "none"}},
        {"a.npy", npy(with(dictionary, "'shape'", "'descr'"), data), {"once", "\"descr\" again"}},
        {"a.npy", npy(with(dictionary, "'descr'", "descr"), data), {"header", "\"'\"", "\"descr"}},
        {"a.npy", npy(dictionary + "x", data), {"header", "\"x\""}},
        {"a.mha", "", {"ElementDataFile", "none"}},
        {"a.mha", std::string("\0\1\2\3\n", 5), {"line 1", "text", "\\x00"}},
        {"a.mha", "some words\n" + header + data, {"line 1", "Field = value", "some words"}},
        {"a.mha", "NDims = 2\n" + header + data, {"line 2", "once", "NDims"}},
        {"a.mha", header + data + "x", {"146 bytes", "found 147"}},
        {"a.mha", header, {"146 bytes", "found 134"}},
        {"a.mha", with(header, "NDims = 2", "NDims = 3") + data, {"DimSize", "3 numbers", "3 2"}},
        {"a.mha", with(header, "NDims = 2\n", "") + data, {"NDims", "none"}},
        {"a.mha", with(header, "3 2", "3 -2") + data, {"DimSize", "whole numbers from 1", "3 -2"}},
        {"a.mha", with(header, "3 2", "3 2.5") + data, {"DimSize", "3 2.5"}},
        {"a.mha", with(header, "3 2", "3 two") + data, {"DimSize", "numbers", "3 two"}},
        {"a.mha", with(header, "3 2", "1e15 1e15") + data, {"shape", "1000000000000000"}},
        {"a.mha", with(header, "MET_SHORT", "MET_FLOAT") + data, {"ElementType", "MET_SHORT or MET_UCHAR", "MET_FLOAT"}},
        {"a.mha", with(header, "MET_SHORT", "MET_UCHAR") + data, {"type", "int16", "uint8"}},
        {"a.mha", with(header, "RF_REAL", "RGB_COLOR") + data, {"UltrasoundImageType", "RF_REAL", "RGB_COLOR"}},
        {"a.mha", with(header, "RF_REAL", "RF_IQ_LINE") + data, {"DimSize", "even", "3 2"}},
        {"a.mha", with(header, "= FM", "= NM") + data, {"UltrasoundImageOrientation", "FM", "NM"}},
        {"a.mha", with(with(header, "= FM", "= MF"), "RF_REAL", "RF_IQ_LINE") + data, {"Orientation", "FM or FU", "MF"}},
        {"a.mha", with(header, "= FM", "= MF") + data, {"axes", "[sample, line]", "[line, sample]"}},
        {"a.mha", "CompressedData = True\n" + header + data, {"CompressedData", "False", "True"}},
        {"a.mha", "CompressedData = perhaps\n" + header + data, {"CompressedData", "True or False", "perhaps"}},
        {"a.mha", "BinaryDataByteOrderMSB = True\n" + header + data, {"BinaryDataByteOrderMSB", "big-endian"}},
        {"a.mha", "BinaryData = False\n" + header + data, {"BinaryData", "True", "False"}},
        {"a.mha", "ObjectType = Tube\n" + header + data, {"ObjectType", "Image", "Tube"}},
        {"a.mha", "ElementNumberOfChannels = 3\n" + header + data, {"ElementNumberOfChannels", "3"}},
        {"a.mhd", with(header, "LOCAL", "LIST"), {"ElementDataFile", "LIST"}},
        {"a.mhd", with(header, "LOCAL", "none.raw"), {"none.raw", "a file", "nothing"}},
        {"a.mhd", "HeaderSize = -2\n" + with(header, "LOCAL", "none.raw"), {"HeaderSize", "-1", "-2"}},
    };
    const Folder folder;
    folder.write("a.yml", "content: rf\naxes: [line, sample]\nsampling_frequency: 20 MHz\n"
                          "geometry: {kind: linear, line_pitch: 1 mm}\n");
    ASSERT_EQ(complaint([&] { Recording::open(folder.write("a.npy", npy(dictionary, data))).read_frame_i16(0); }), "");
    ASSERT_EQ(complaint([&] { Recording::open(folder.write("a.mha", header + data)).read_frame_i16(0); }), "");
    for (const Case& c : cases)
        expect_complaint(complaint([&] { Recording::open(folder.write(c.file, c.content)); }), (folder / "").string(), c.words);

    // Whatever is damaged, the reader says so or reads on; it neither crashes nor throws anything else.
    std::mt19937 random(1);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random()) % limit; };
    std::ifstream description(folder / "a.yml");
    const std::string text{std::istreambuf_iterator<char>(description), {}};
    const std::vector<std::pair<std::string, std::string>> files = {
        {"a.npy", npy(dictionary, data)}, {"a.mha", header + data}, {"a.yml", text}};
    constexpr int trials = 600;
    int refused = 0;
    for (int i = 0; i < trials; ++i) {
        const auto& [name, good] = files[below(files.size())];
        std::string bad = good;
        for (std::size_t changes = 1 + below(3); changes > 0; --changes)
            switch (below(3)) {
            case 0:
                bad[below(bad.size())] = static_cast<char>(below(256));
                break;
            case 1:
                bad.erase(below(bad.size()), 1 + below(4));
                break;
            default:
                bad.insert(below(bad.size()), good, below(good.size()), below(9));
            }
        folder.write(name, bad);
        const fs::path opened = folder / (name == "a.yml" ? "a.npy" : name);
        const std::string line = complaint([&] { Recording::open(opened).read_frame_i16(0); });
        refused += !line.empty();
        ASSERT_EQ(line.find('\n'), std::string::npos) << line;
        folder.write(name, good);
    }
    EXPECT_GT(refused, trials / 2);
    EXPECT_LT(refused, trials);
}

TEST(Units, ReadWhatPeopleWrite)
{
    const auto value = [](const char* text, Quantity quantity) { return parse_quantity(text, quantity).value_or(NAN); };
    for (const char* text : {"20 MHz", "20MHz", " 20  MHz ", "2e7", "+20000 kHz", "0.02GHz", "20000000 Hz"})
        EXPECT_EQ(value(text, Quantity::frequency), 2e7) << text;
    for (const char* text : {"0.298 mm", "298um", "298 \u00b5m", "298 \u03bcm", ".0298cm", "2.98e-4 m", "0.000298"})
        EXPECT_DOUBLE_EQ(value(text, Quantity::length), 0.298e-3) << text;
    for (const char* text : {"1540 m/s", "1540", "1.54km/s", "154000 cm/s"})
        EXPECT_EQ(value(text, Quantity::speed), 1540) << text;
    EXPECT_DOUBLE_EQ(value("-90 deg", Quantity::angle), -std::acos(0.0));
    EXPECT_EQ(value("1500mrad", Quantity::angle), 1.5);
    EXPECT_EQ(value("60 dB", Quantity::level), 60);
    for (const char* text :
         {"", " ", "MHz", "20 MHz x", "20 mm", "20 mhz", "20,5 MHz", "1e999", "nan", "inf", "0x10", "+-1", "--1"})
        EXPECT_FALSE(parse_quantity(text, Quantity::frequency)) << text;
    EXPECT_FALSE(parse_quantity("5 Hz", Quantity::number));
    expect_complaint(complaint([] { quantity_of("--center-frequency", "5", Quantity::frequency, 1e5, 1e8); }),
                     "--center-frequency", {"100 kHz to 100 MHz", "\"5\""});
    EXPECT_EQ(with_unit(0.298e-3, Quantity::length), "0.298 mm");
    EXPECT_EQ(with_unit(11.6, Quantity::frequency), "11.6 Hz");
    EXPECT_EQ(with_unit(55.02, Quantity::number), "55.02");
}

TEST(RealRecordings, LieWhereTheirDescriptionsSay)
{
    SKIP_WITHOUT_REAL_DATA();
    struct Case
    {
        const char* example;
        std::int64_t frame, line, sample; // of pictures: column, row
        std::vector<int> values;
    };
    const std::vector<Case> cases = {
        {"disk_rf", 0, 61, 300, {1836, 5414, -3313, -3765, 4496, 2557, -4855, -1387}},
        {"disk_iq", 0, 61, 100, {882, 6453}},
        {"disk_bmode", 0, 100, 125, {197, 191, 199, 207, 211, 213, 213, 201, 188, 167, 139, 145}},
        {"hand_rf", 22, 40, 900, {56, 45, 42, 61, 67, 56, 44, 43, 64, 69}},
        {"hand_rf", 0, 40, 758, {247, -157, -298, -129, 278, 240, -212, -190, 61, 63}},
        {"hand_rf", 34, 15, 1685, {55, 55, 55, 55}}, // a dead line
        {"prostate_iq", 0, 179, 700, {-6480, 2006, -1811, 5309, 2360, 2642, 1637, -1285}},
        {"carotid_iq", 0, 52, 120, {14, 26}},
        {"heart", 0, 150, 100, {86, 91, 86, 77, 72, 73, 73, 64, 53, 47, 28, 20, 12, 9, 7, 6}},
        {"bone", 0, 50, 300, {51, 68, 85, 102, 119, 134, 146, 159, 168, 175, 179, 178, 175, 172, 166, 158}},
    };
    for (const Case& c : cases) {
        const Recording recording = Recording::open(real_data::example(c.example), real_data::folder());
        const Description& d = recording.description();
        std::int64_t at = (c.line * d.samples + c.sample) * (d.content == Content::iq ? 2 : 1);
        if (d.geometry.kind == Geometry::Kind::picture)
            at = c.sample * d.lines + c.line;
        std::vector<int> frame;
        if (d.type == ElementType::int16)
            for (const std::int16_t value : recording.read_frame_i16(c.frame))
                frame.push_back(value);
        else
            for (const std::uint8_t value : recording.read_frame_u8(c.frame))
                frame.push_back(value);
        const auto first = frame.begin() + static_cast<std::ptrdiff_t>(at);
        EXPECT_EQ(std::vector<int>(first, first + static_cast<std::ptrdiff_t>(c.values.size())), c.values) << c.example;
    }

    const auto sum = [](const char* name, std::int64_t frame) {
        const auto pixels = Recording::open(real_data::example(name), real_data::folder()).read_frame_u8(frame);
        return std::accumulate(pixels.begin(), pixels.end(), 0L);
    };
    EXPECT_EQ(sum("disk_bmode", 2), 8264757);
    EXPECT_EQ(sum("heart", 5), 720257);
    EXPECT_EQ(sum("bone", 3), 8527327);
    const auto lines = Recording::open(real_data::example("carotid_bmode"), real_data::folder()).read_frame_u8(0);
    double wall = 0;
    for (std::size_t line = 80; line < 220; ++line)
        wall += std::accumulate(lines.begin() + static_cast<std::ptrdiff_t>(line * 592 + 270),
                                lines.begin() + static_cast<std::ptrdiff_t>(line * 592 + 300), 0.0);
    EXPECT_NEAR(wall / (140 * 30), 139.20, 0.005);

    // The constant behind the echoes is not handed out.
    const auto prostate = Recording::open(real_data::example("prostate_iq"), real_data::folder()).read_frame_i16(0);
    EXPECT_EQ(prostate.size(), 358U * 1736 * 2);
    const Recording reference = Recording::open(real_data::folder() / "prostate_phantom_iq/curved_reference_image.mha");
    EXPECT_EQ(reference.description().lines, 600);
    EXPECT_EQ(reference.read_frame_u8(0).size(), 240000U);
    EXPECT_EQ(sha256_of_file(real_data::folder() / "rotating_disk/disk_rf_i16.raw").substr(0, 16), "164a3c0abc56fa5e");
}

} // namespace
