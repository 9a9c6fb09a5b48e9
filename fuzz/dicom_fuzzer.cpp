// DICOM files, with and without the mark at byte 128 that nearly every change would spoil.
#include "harness.h"

#include <cstring>

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    std::string content(text_of(data, size));
    if (content.size() >= 132)
        content.replace(128, 4, "DICM");
    open_and_check(folder.write("recording.dcm", content), folder.path());
    return 0;
}
