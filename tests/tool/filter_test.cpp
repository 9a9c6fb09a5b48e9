// Cines as users have them: filtered recordings of real echoes against figures known of them, and DICOM files.
#include "bad_input.h"
#include "dicom.h"
#include "frame_filters.h"
#include "real_data.h"
#include "recording.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>

using namespace echo2image;
namespace fs = std::filesystem;

namespace {

using Frame = std::vector<std::uint8_t>;

std::int64_t sum(const Frame& frame)
{
    return std::accumulate(frame.begin(), frame.end(), std::int64_t{0});
}

// Frame `last` after the filters have seen the cine from frame `first` on.
Frame filtered(const Recording& cine, const char* filters, std::int64_t first, std::int64_t last)
{
    FrameFilters chain(filters_of(filters), cine.description().samples, cine.description().lines);
    Frame frame;
    for (std::int64_t k = first; k <= last; ++k)
        frame = chain.next(cine.read_frame_u8(k));
    return frame;
}

std::int64_t inner_sum(const Frame& frame, std::size_t rows, std::size_t columns)
{
    std::int64_t result = 0;
    for (std::size_t row = 1; row + 1 < rows; ++row)
        for (std::size_t column = 1; column + 1 < columns; ++column)
            result += frame[row * columns + column];
    return result;
}

TEST(FilteredCines, OfABeatingHeart)
{
    SKIP_WITHOUT_REAL_DATA();
    const Recording heart = Recording::open(real_data::example("heart"), real_data::folder());
    EXPECT_EQ(sum(filtered(heart, "median3", 0, 2)), 714934);
    EXPECT_EQ(sum(filtered(heart, "median5", 4, 8)), 716497);
    EXPECT_EQ(filtered(heart, "median5", 4, 8), filtered(heart, "median5", 0, 8));
    EXPECT_EQ(sum(filtered(heart, "average 2", 0, 1)), 729724);
    // The mean of four is rounded down; with what that drops, the sum of all four frames comes out.
    const Frame mean = filtered(heart, "average 4", 0, 3);
    std::vector<int> dropped(mean.size());
    for (std::int64_t k = 0; k < 4; ++k) {
        const Frame frame = heart.read_frame_u8(k);
        for (std::size_t i = 0; i < frame.size(); ++i)
            dropped[i] += frame[i];
    }
    for (int& value : dropped)
        value %= 4;
    EXPECT_EQ(4 * sum(mean) + std::accumulate(dropped.begin(), dropped.end(), std::int64_t{0}), 2870368);
    EXPECT_EQ(inner_sum(filtered(heart, "median2d 3", 0, 0), 240, 320), 687694);
    // Frames 10 and 11 are the same, so all means of them are, too; a persistent picture moves towards them.
    const Frame eleven = heart.read_frame_u8(11);
    EXPECT_EQ(filtered(heart, "average 2", 10, 11), eleven);
    EXPECT_EQ(filtered(heart, "persist 9", 10, 11), eleven);
}

TEST(FilteredCines, OfMuscleOverBone)
{
    SKIP_WITHOUT_REAL_DATA();
    const Recording bone = Recording::open(real_data::example("bone"), real_data::folder());
    EXPECT_EQ(sum(filtered(bone, "median3", 0, 2)), 8615598);
    EXPECT_EQ(inner_sum(filtered(bone, "median2d", 0, 0), 448, 464), 8607268);
    // Speckle gets smoother with every frame: the mean step from column to column, which an average makes smaller.
    const auto roughness = [](const Frame& frame) {
        std::int64_t steps = 0;
        for (std::size_t i = 1; i < frame.size(); ++i)
            steps += std::abs(frame[i] - frame[i - 1]);
        return static_cast<double>(steps) / static_cast<double>(frame.size());
    };
    const double plain = roughness(bone.read_frame_u8(8));
    EXPECT_LT(roughness(filtered(bone, "average 4", 0, 8)), 0.9 * plain);
    EXPECT_LT(roughness(filtered(bone, "persist 12", 0, 8)), 0.9 * plain);
    EXPECT_LT(roughness(filtered(bone, "median2d 5", 8, 8)), 0.9 * plain);
}

TEST(FilteredCines, OfADicomFile)
{
    SKIP_WITHOUT_REAL_DATA();
    if (!reads_dicom())
        GTEST_SKIP() << "built without DCMTK";
    const Recording raw = Recording::open(real_data::example("heart"), real_data::folder());
    const Recording dicom = Recording::open(real_data::folder() / "heart_cine/examples_ybr_color.dcm");
    EXPECT_EQ(dicom.description().shape, raw.description().shape);
    EXPECT_NEAR(dicom.description().frame_rate, 30, 0.001);
    // The file's scale belongs to the 640 x 480 pixels that were scaled down.
    EXPECT_EQ(dicom.description().geometry.column_spacing, 0);
    for (const std::int64_t k : {29, 0, 13}) { // in any order
        const Frame a = raw.read_frame_u8(k);
        const Frame b = dicom.read_frame_u8(k);
        ASSERT_EQ(a.size(), b.size());
        for (std::size_t i = 0; i < a.size(); ++i)
            ASSERT_LE(std::abs(a[i] - b[i]), 1) << "frame " << k << ", pixel " << i;
        EXPECT_NEAR(static_cast<double>(sum(b)), static_cast<double>(sum(a)), 0.01 * static_cast<double>(a.size()));
    }
    EXPECT_NEAR(static_cast<double>(sum(filtered(dicom, "median3", 0, 2))), 714934, 768);
}

// A DICOM file of our own: explicit VR, little endian, not compressed.
class OwnDicomFile
{
public:
    std::string photometric = "MONOCHROME2";
    std::uint16_t channels = 1;
    std::string frames = "3";
    std::uint16_t rows = 10;
    std::uint16_t columns = 21;
    std::uint16_t bits = 8;
    std::uint32_t right_edge = 20;
    std::string pixels;
    std::uint32_t run_lengths_at = 0; // if not 0, frames are run-length coded, and their header says that this is where

    OwnDicomFile() : pixels(noise(3 * 10 * 21)) {}

    static std::string noise(std::size_t size)
    {
        std::mt19937 generator(5);
        std::string bytes(size, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(generator() >> 8);
        return bytes;
    }

    void write(const fs::path& file) const
    {
        const std::string syntax = text(0x0002, 0x0010, "UI", run_lengths_at ? "1.2.840.10008.1.2.5" : "1.2.840.10008.1.2.1");
        const std::string meta = element(0x0002, 0x0001, "OB", std::string("\0\1", 2)) +
                                 text(0x0002, 0x0002, "UI", "1.2.840.10008.5.1.4.1.1.3.1") +
                                 text(0x0002, 0x0003, "UI", "1.2.3.4") + syntax;
        std::string content = std::string(128, '\0') + "DICM" +
                              element(0x0002, 0x0000, "UL", number(static_cast<std::uint32_t>(meta.size()))) + meta;
        content += text(0x0018, 0x1063, "DS", "40");
        const std::string region =
            element(0x0018, 0x601c, "UL", number(right_edge)) + element(0x0018, 0x601e, "UL", number(std::uint32_t{9})) +
            element(0x0018, 0x6024, "US", number(std::uint16_t{3})) + element(0x0018, 0x6026, "US", number(std::uint16_t{3})) +
            element(0x0018, 0x602c, "FD", number(0.02)) + element(0x0018, 0x602e, "FD", number(-0.03));
        content += element(0x0018, 0x6011, "SQ",
                           std::string("\xfe\xff\x00\xe0", 4) + number(static_cast<std::uint32_t>(region.size())) + region);
        content += element(0x0028, 0x0002, "US", number(channels)) + text(0x0028, 0x0004, "CS", photometric);
        if (channels > 1)
            content += element(0x0028, 0x0006, "US", number(std::uint16_t{0}));
        content += text(0x0028, 0x0008, "IS", frames) + element(0x0028, 0x0010, "US", number(rows)) +
                   element(0x0028, 0x0011, "US", number(columns)) + element(0x0028, 0x0100, "US", number(bits)) +
                   element(0x0028, 0x0101, "US", number(bits)) +
                   element(0x0028, 0x0102, "US", number(static_cast<std::uint16_t>(bits - 1))) +
                   element(0x0028, 0x0103, "US", number(std::uint16_t{0}));
        if (run_lengths_at)
            content += std::string("\xe0\x7f\x10\0OB\0\0\xff\xff\xff\xff", 12) + run_lengths();
        else if (!pixels.empty())
            content += element(0x7fe0, 0x0010, "OB", pixels);
        std::ofstream(file, std::ios::binary) << content;
    }

private:
    // A fragment for each frame: its header, then runs of different bytes.
    std::string run_lengths() const
    {
        const auto fragment = [](const std::string& content) {
            return std::string("\xfe\xff\x00\xe0", 4) + number(static_cast<std::uint32_t>(content.size())) + content;
        };
        std::string fragments = fragment("");
        for (std::size_t at = 0; at < 630; at += 210)
            fragments += fragment(number(std::uint32_t{1}) + number(run_lengths_at) + std::string(56, '\0') + char{127} +
                                  pixels.substr(at, 128) + char{81} + pixels.substr(at + 128, 82));
        return fragments + std::string("\xfe\xff\xdd\xe0\0\0\0\0", 8);
    }
    template <class Number>
    static std::string number(Number value)
    {
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }
    static std::string text(std::uint16_t group, std::uint16_t name, const char* type, std::string value)
    {
        if (value.size() % 2 != 0)
            value += type == std::string("UI") ? '\0' : ' ';
        return element(group, name, type, value);
    }
    static std::string element(std::uint16_t group, std::uint16_t name, const std::string& type, std::string value)
    {
        if (value.size() % 2 != 0)
            value += '\0';
        const bool is_long = type == "OB" || type == "SQ";
        return number(group) + number(name) + type +
               (is_long ? std::string(2, '\0') + number(static_cast<std::uint32_t>(value.size()))
                        : number(static_cast<std::uint16_t>(value.size()))) +
               value;
    }
};

class DicomFiles : public testing::Test
{
protected:
    fs::path folder;

    void SetUp() override
    {
        std::random_device random;
        folder = fs::temp_directory_path() / ("filter_test_" + std::to_string(random()));
        fs::create_directories(folder);
    }
    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    void expect_refusal(const OwnDicomFile& file, const std::string& what, std::int64_t frame = 0) const
    {
        file.write(folder / "bad.dcm");
        expect_refusal("bad.dcm", what, frame);
    }
    void expect_refusal(const std::string& name, const std::string& what, std::int64_t frame = 0) const
    {
        try {
            Recording::open(folder / name).read_frame_u8(frame);
            ADD_FAILURE() << "accepted; expected: " << what;
        } catch (const BadInput& error) {
            const std::string message = error.what();
            EXPECT_NE(message.find(name + ": "), std::string::npos) << message;
            EXPECT_NE(message.find(what), std::string::npos) << message << "\nexpected: " << what;
            EXPECT_EQ(message.find('\n'), std::string::npos) << message;
        }
    }
};

TEST_F(DicomFiles, HoldGreyValuesOrColours)
{
    OwnDicomFile file;
    file.write(folder / "cine.dcm");
    if (!reads_dicom())
        return expect_refusal("cine.dcm", "built without DCMTK");
    file.write(folder / "IM0001"); // many have no extension
    for (const char* name : {"cine.dcm", "IM0001"}) {
        const Recording cine = Recording::open(folder / name);
        const Description& d = cine.description();
        EXPECT_EQ(d.format, "DICOM");
        EXPECT_EQ(d.frames, 3);
        EXPECT_EQ(d.samples, 10);
        EXPECT_EQ(d.lines, 21);
        EXPECT_EQ(d.frame_rate, 25);
        EXPECT_DOUBLE_EQ(d.geometry.column_spacing, 0.2e-3);
        EXPECT_DOUBLE_EQ(d.geometry.row_spacing, 0.3e-3);
        for (const int k : {2, 0, 1}) {
            const Frame frame = cine.read_frame_u8(k);
            EXPECT_EQ(std::string(frame.begin(), frame.end()), file.pixels.substr(static_cast<std::size_t>(k) * 210, 210));
        }
        EXPECT_THROW(cine.read_frame_u8(3), BadInput);
    }
    OwnDicomFile coded;
    coded.run_lengths_at = 64;
    coded.write(folder / "coded.dcm");
    const Frame decoded = Recording::open(folder / "coded.dcm").read_frame_u8(1);
    EXPECT_EQ(std::string(decoded.begin(), decoded.end()), coded.pixels.substr(210, 210));
    // A description beside the file, or naming it, adds what it knows.
    std::ofstream(folder / "cine.yml") << "title: Own\nframe_rate: 12 Hz\n";
    EXPECT_EQ(Recording::open(folder / "cine.dcm").description().frame_rate, 12);
    std::ofstream(folder / "named.yml") << "file: IM0001\nshape: [3, 10, 22]\n";
    expect_refusal("named.yml", "shape: expected [3, 10, 21]");

    OwnDicomFile colours;
    colours.photometric = "RGB";
    colours.channels = 3;
    colours.frames = "1";
    for (int i = 0; i < 256; ++i) // grey stays grey
        for (std::size_t channel = 0; channel < 3 && i < 21; ++channel)
            colours.pixels[static_cast<std::size_t>(3 * i) + channel] = static_cast<char>(12 * i);
    colours.right_edge = 595; // not of this picture
    colours.write(folder / "colours.dcm");
    const Recording picture = Recording::open(folder / "colours.dcm");
    EXPECT_EQ(picture.description().frames, 1);
    EXPECT_EQ(picture.description().geometry.column_spacing, 0);
    const Frame grey = picture.read_frame_u8(0);
    for (std::size_t i = 0; i < grey.size(); ++i) {
        const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(colours.pixels[3 * i + k]); };
        EXPECT_EQ(grey[i], std::floor(0.299 * byte(0) + 0.587 * byte(1) + 0.114 * byte(2) + 0.5)) << i;
        if (i < 21) {
            EXPECT_EQ(grey[i], 12 * i);
        }
    }
}

TEST_F(DicomFiles, SayWhatIsWrongWithThem)
{
    std::ofstream(folder / "no.dcm") << "something else";
    expect_refusal("absent.dcm", "expected a file, found nothing");
    if (!reads_dicom())
        return expect_refusal("no.dcm", "built without DCMTK");
    expect_refusal("no.dcm", "expected a DICOM file, with DICM at byte 128");
    const auto expect = [&](const char* what, void (*spoil)(OwnDicomFile&)) {
        OwnDicomFile file;
        spoil(file);
        expect_refusal(file, what);
    };
    expect("BitsAllocated: expected unsigned samples of 8 bits, found 16", [](OwnDicomFile& f) { f.bits = 16; });
    expect("numbers above 0, found 10, 21, -4", [](OwnDicomFile& f) { f.frames = "-4"; });
    expect("numbers above 0, found 0, 21, 3", [](OwnDicomFile& f) { f.rows = 0; });
    expect("PixelData: expected the pixels of 3 frames, found none", [](OwnDicomFile& f) { f.pixels.clear(); });
    expect("PixelData: expected 3 frames of 210 bytes, found 628 bytes", [](OwnDicomFile& f) { f.pixels.resize(628); });
    expect("PixelData: expected 2147483647 frames", [](OwnDicomFile& f) { f.frames = "2147483647"; });
    expect("frame 0: expected a picture that can be decoded", [](OwnDicomFile& f) { f.photometric = "PALETTE COLOR"; });
    expect("at most 33554432 pixels, found 65535 x 65535", [](OwnDicomFile& f) { f.rows = f.columns = 65535; });
    // Where DCMTK's decoder would read whatever is there.
    expect("frame 0: expected segment 1 to start between byte 64 and 276, found 1610612800",
           [](OwnDicomFile& f) { f.run_lengths_at = 0x60000040; });
    expect("frame 0: expected segment 1 to start", [](OwnDicomFile& f) { f.run_lengths_at = 60; });
    for (const std::uintmax_t size : {133U, 300U, 700U, 1200U}) {
        OwnDicomFile().write(folder / "cut.dcm");
        fs::resize_file(folder / "cut.dcm", size);
        expect_refusal("cut.dcm", "expected");
    }
}

} // namespace
