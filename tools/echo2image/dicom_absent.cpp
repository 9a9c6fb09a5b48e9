// In place of dicom.cpp where DCMTK is missing.
#include "dicom.h"

#include "input_file.h"

namespace echo2image {

bool reads_dicom()
{
    return false;
}

struct DicomFile::Impl
{
};

DicomFile::DicomFile(const std::filesystem::path& file)
{
    InputFile{file};
    throw BadInput(name_of(file) + ": this echo2image was built without DCMTK, which reads DICOM files");
}

DicomFile::~DicomFile() = default;

std::vector<std::uint8_t> DicomFile::frame(std::int64_t) const
{
    return {};
}

} // namespace echo2image
