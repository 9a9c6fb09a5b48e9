// DICOM files of one or several pictures, read as grey values.
#pragma once

#include "description.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace echo2image {

// Whether a file bears DICOM's mark. False for what cannot be read.
bool is_dicom(const std::filesystem::path& file);
// Whether this program was built with DCMTK.
bool reads_dicom();

// Colours become 0.299 red + 0.587 green + 0.114 blue, rounded to nearest. All functions throw BadInput, without
// DCMTK always.
class DicomFile
{
public:
    explicit DicomFile(const std::filesystem::path& file);
    ~DicomFile();
    DicomFile(const DicomFile&) = delete;
    DicomFile& operator=(const DicomFile&) = delete;

    const Layout& layout() const { return layout_; }
    std::vector<std::uint8_t> frame(std::int64_t number) const; // [row][column]

private:
    struct Impl;
    Layout layout_;
    std::unique_ptr<Impl> impl_;
};

} // namespace echo2image
