// YAML descriptions. What they describe is made to lie in samples.raw.
#include "description.h"
#include "harness.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Folder folder;
    const fs::path file = folder.write("recording.yml", text_of(data, size));
    const fs::path samples = folder.write("samples.raw", "some bytes");
    read_or_reject([&] {
        const Stated stated = read_description(file);
        if (stated.type)
            fit_size(samples, stated.shape, stated.header_bytes.value_or(0), *stated.type == ElementType::int16 ? 2 : 1);
    });
    open_and_check(file, folder.path());
    return 0;
}
