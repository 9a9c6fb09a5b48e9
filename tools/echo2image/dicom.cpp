#include "dicom.h"

#include "input_file.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmimage/diregist.h> // colours
#include <dcmtk/dcmimgle/dcmimage.h>
#include <dcmtk/dcmjpeg/djdecode.h>
#include <dcmtk/dcmjpls/djdecode.h>

#include <array>
#include <cmath>
#include <cstring>

namespace echo2image {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t most_pixels = 1 << 25; // of a frame

// DCMTK's decoders, and silence: what is wrong is said here.
void prepare_library()
{
    static const bool prepared = [] {
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);
        DJDecoderRegistration::registerCodecs();
        DJLSDecoderRegistration::registerCodecs();
        DcmRLEDecoderRegistration::registerCodecs();
        return true;
    }();
    static_cast<void>(prepared);
}

std::string text_of(DcmItem& item, const DcmTagKey& key)
{
    OFString text;
    return item.findAndGetOFStringArray(key, text).good() ? std::string(text.c_str()) : std::string();
}

// Pictures per second from what cines state: milliseconds from frame to frame, or their number per second.
double frame_rate_of(DcmItem& data)
{
    const auto plausible = [](double rate) { return std::isfinite(rate) && rate >= 0.001 && rate <= 1e6; };
    Float64 value = 0;
    if (data.findAndGetFloat64(DCM_FrameTime, value).good() && plausible(1000 / value))
        return 1000 / value;
    Sint32 rate = 0;
    for (const DcmTagKey& key : {DCM_CineRate, DCM_RecommendedDisplayFrameRate})
        if (data.findAndGetSint32(key, rate).good() && plausible(rate))
            return rate;
    return 0;
}

// The size of a pixel, when there is one region with a scale in centimetres (unit 3) and it lies within the picture.
// A region that reaches beyond it describes another picture, from which this one was scaled down.
void set_spacing(DcmItem& data, Layout& layout, std::int64_t rows, std::int64_t columns)
{
    constexpr Uint16 centimetres = 3;
    DcmSequenceOfItems* regions = nullptr;
    if (data.findAndGetSequence(DCM_SequenceOfUltrasoundRegions, regions).bad() || regions->card() != 1)
        return;
    DcmItem& region = *regions->getItem(0);
    Uint16 unit_x = 0;
    Uint16 unit_y = 0;
    Uint32 right = 0;
    Uint32 bottom = 0;
    Float64 x = 0;
    Float64 y = 0;
    const bool complete = region.findAndGetUint16(DCM_PhysicalUnitsXDirection, unit_x).good() &&
                          region.findAndGetUint16(DCM_PhysicalUnitsYDirection, unit_y).good() &&
                          region.findAndGetUint32(DCM_RegionLocationMaxX1, right).good() &&
                          region.findAndGetUint32(DCM_RegionLocationMaxY1, bottom).good() &&
                          region.findAndGetFloat64(DCM_PhysicalDeltaX, x).good() &&
                          region.findAndGetFloat64(DCM_PhysicalDeltaY, y).good();
    const auto plausible = [](double size) { return std::isfinite(size) && size >= 1e-4 && size <= 5; };
    if (!complete || unit_x != centimetres || unit_y != centimetres || right > columns || bottom > rows ||
        !plausible(std::fabs(x)) || !plausible(std::fabs(y)))
        return;
    layout.column_spacing = std::fabs(x) / 100;
    layout.row_spacing = std::fabs(y) / 100;
}

// What DCMTK's decoder of run lengths reads without looking: each frame is one fragment, which starts with the number of its
// segments (one for each channel) and their places. The first fragment is a table of the others.
void check_run_lengths(const fs::path& file, DcmElement& pixels, std::int64_t frame, std::int64_t frames, std::int64_t channels)
{
    const std::string field = "PixelData, frame " + std::to_string(frame);
    DcmPixelSequence* fragments = nullptr;
    auto& data = static_cast<DcmPixelData&>(pixels);
    if (data.getEncapsulatedRepresentation(EXS_RLELossless, nullptr, fragments).bad() ||
        static_cast<std::int64_t>(fragments->card()) != frames + 1)
        reject(file, "PixelData", std::to_string(frames) + " fragments, one for each frame", "another number");
    DcmPixelItem* fragment = nullptr;
    Uint8* bytes = nullptr;
    std::array<std::uint32_t, 16> header{}; // little-endian
    if (fragments->getItem(fragment, static_cast<unsigned long>(frame + 1)).bad() || fragment->getUint8Array(bytes).bad() ||
        bytes == nullptr || fragment->getLength() < sizeof header)
        reject(file, field, "a fragment with at least " + std::to_string(sizeof header) + " bytes", "none");
    std::memcpy(header.data(), bytes, sizeof header);
    if (header[0] != channels)
        reject(file, field, std::to_string(channels) + " segments of run lengths", std::to_string(header[0]));
    std::uint32_t before = sizeof header - 1;
    for (std::size_t i = 1; i <= static_cast<std::size_t>(channels); before = header[i++])
        if (header[i] <= before || header[i] > fragment->getLength())
            reject(file, field,
                   "segment " + std::to_string(i) + " to start between byte " + std::to_string(before + 1) + " and " +
                       std::to_string(fragment->getLength()),
                   std::to_string(header[i]));
}

} // namespace

bool reads_dicom()
{
    return true;
}

struct DicomFile::Impl
{
    mutable DcmFileFormat file;
};

DicomFile::DicomFile(const fs::path& file) : impl_(std::make_unique<Impl>())
{
    prepare_library();
    InputFile{file};
    if (!is_dicom(file))
        reject(file, "", "a DICOM file, with DICM at byte 128", "none");
    const OFCondition status = impl_->file.loadFile(file.c_str());
    if (status.bad())
        reject(file, "", "a whole DICOM file", std::string("damage: ") + status.text());
    DcmDataset& data = *impl_->file.getDataset();

    const auto number = [&](const DcmTagKey& key, const char* name, std::int64_t usual) {
        Uint16 value = 0;
        if (data.findAndGetUint16(key, value).good())
            return std::int64_t{value};
        if (usual < 0)
            reject(file, name, "a number", "none; the file holds no picture");
        return usual;
    };
    const std::int64_t rows = number(DCM_Rows, "Rows", -1);
    const std::int64_t columns = number(DCM_Columns, "Columns", -1);
    const std::int64_t channels = number(DCM_SamplesPerPixel, "SamplesPerPixel", 1);
    const std::int64_t bits = number(DCM_BitsAllocated, "BitsAllocated", -1);
    if (bits != 8 || number(DCM_PixelRepresentation, "PixelRepresentation", 0) != 0)
        reject(file, "BitsAllocated", "unsigned samples of 8 bits", std::to_string(bits));
    Sint32 frames = 1;
    if (data.findAndGetSint32(DCM_NumberOfFrames, frames).bad())
        frames = 1;
    if (rows < 1 || columns < 1 || frames < 1)
        reject(file, "Rows, Columns, NumberOfFrames", "numbers above 0",
               std::to_string(rows) + ", " + std::to_string(columns) + ", " + std::to_string(frames));
    if (rows * columns > most_pixels)
        reject(file, "Rows, Columns", "at most " + std::to_string(most_pixels) + " pixels",
               std::to_string(rows) + " x " + std::to_string(columns));

    DcmElement* pixels = nullptr;
    if (data.findAndGetElement(DCM_PixelData, pixels).bad())
        reject(file, "PixelData", "the pixels of " + std::to_string(frames) + " frames", "none");
    const bool encapsulated = DcmXfer(data.getOriginalXfer()).isEncapsulated();
    if (channels != 1 && channels != 3)
        reject(file, "SamplesPerPixel", "1 or 3", std::to_string(channels));
    const bool halved_colours = text_of(data, DCM_PhotometricInterpretation) == "YBR_FULL_422";
    const std::int64_t frame_bytes = rows * columns * (halved_colours ? 2 : channels);
    if (!encapsulated && pixels->getLength() / frame_bytes < frames)
        reject(file, "PixelData", std::to_string(frames) + " frames of " + std::to_string(frame_bytes) + " bytes",
               std::to_string(pixels->getLength()) + " bytes");

    layout_.data_file = file;
    layout_.format = "DICOM";
    layout_.type = ElementType::uint8;
    layout_.content = Content::bmode;
    layout_.axes = {"frame", "row", "column"};
    layout_.shape = {frames, rows, columns};
    layout_.frame_rate = frame_rate_of(data);
    set_spacing(data, layout_, rows, columns);
}

DicomFile::~DicomFile() = default;

std::vector<std::uint8_t> DicomFile::frame(std::int64_t number) const
{
    const std::string name = "frame " + std::to_string(number);
    DcmDataset& data = *impl_->file.getDataset();
    DcmElement* pixels_of_all = nullptr;
    if (data.getOriginalXfer() == EXS_RLELossless && data.findAndGetElement(DCM_PixelData, pixels_of_all).good()) {
        Uint16 channels = 1;
        data.findAndGetUint16(DCM_SamplesPerPixel, channels);
        check_run_lengths(layout_.data_file, *pixels_of_all, number, layout_.shape[0], channels);
    }
    // Only this frame is decoded.
    DicomImage image(&data, data.getOriginalXfer(), CIF_UsePartialAccessToPixelData, static_cast<unsigned long>(number), 1);
    if (image.getStatus() != EIS_Normal)
        reject(layout_.data_file, name, "a picture that can be decoded", DicomImage::getString(image.getStatus()));
    const auto pixels = static_cast<std::size_t>(layout_.shape[1] * layout_.shape[2]);
    const std::size_t channels = image.isMonochrome() ? 1 : 3;
    image.setNoVoiTransformation(); // values as they are stored
    std::vector<std::uint8_t> values(pixels * channels);
    if (static_cast<std::int64_t>(image.getWidth()) != layout_.shape[2] ||
        static_cast<std::int64_t>(image.getHeight()) != layout_.shape[1] ||
        image.getOutputData(values.data(), static_cast<unsigned long>(values.size()), 8) == 0)
        reject(layout_.data_file, name,
               "a picture of " + std::to_string(layout_.shape[1]) + " x " + std::to_string(layout_.shape[2]) + " pixels",
               std::to_string(image.getHeight()) + " x " + std::to_string(image.getWidth()));
    if (channels == 3) {
        for (std::size_t i = 0; i < pixels; ++i) {
            const std::uint8_t* const rgb = values.data() + 3 * i;
            values[i] = static_cast<std::uint8_t>((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
        }
        values.resize(pixels);
    }
    return values;
}

} // namespace echo2image
