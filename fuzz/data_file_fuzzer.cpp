// NumPy and MetaImage files, told apart by their first byte, with samples up to the size that their header asks for, and a
// description beside them with names for as many axes as they have.
#include "harness.h"
#include "metaimage.h"
#include "npy.h"

#include <algorithm>

using namespace fuzz;

namespace {

std::string description_of(const Layout& layout)
{
    const bool bytes = layout.type == ElementType::uint8;
    std::vector<std::string> axes = {"frame", "line", "sample"};
    if (!bytes && (layout.fastest_first ? layout.shape.front() : layout.shape.back()) == 2)
        axes.emplace_back("component");
    while (axes.size() > layout.shape.size())
        axes.erase(axes.begin());
    if (axes.size() < layout.shape.size())
        axes.insert(axes.begin(), "firing");
    if (layout.fastest_first)
        std::reverse(axes.begin(), axes.end());
    std::string text = "sampling_frequency: 20 MHz\ncenter_frequency: 5 MHz\ngeometry: {kind: linear, line_pitch: 0.3 mm}\n";
    if (layout.content)
        return text;
    text += std::string("content: ") + (bytes ? "bmode" : axes.size() > 1 && axes.back() == "component" ? "iq" : "rf");
    text += "\naxes: [";
    for (const std::string& axis : axes)
        text += (&axis == axes.data() ? "" : ", ") + axis;
    return text + "]\n";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    const bool numpy = size > 0 && data[0] == 0x93;
    const fs::path file = folder.write(numpy ? "recording.npy" : "recording.mha", text_of(data, size));
    const fs::path samples = folder.write("samples.raw", "some bytes");
    folder.write("recording.yml", "title: no more than that\n");
    open_and_check(file, folder.path());
    read_or_reject([&] {
        const Layout layout = numpy ? read_npy_header(file) : read_metaimage_header(file).layout;
        if (layout.shape.empty())
            return;
        if (layout.data_file == file || layout.data_file == samples)
            fit_size(layout.data_file, layout.shape, layout.header_bytes, layout.type == ElementType::int16 ? 2 : 1);
        folder.write("recording.yml", description_of(layout));
    });
    open_and_check(file, folder.path());
    return 0;
}
