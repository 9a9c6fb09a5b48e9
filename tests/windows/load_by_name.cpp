// A host that loads the DLL while it runs, finds kernels by the names MinGW gives them, and lets it go; twice.
#include <cstdio>
#include <cstring>
#include <windows.h>

namespace {

template <class Function>
Function* find(HMODULE library, const char* name)
{
    const FARPROC address = GetProcAddress(library, name);
    if (address == nullptr)
        std::printf("%s: not found\n", name);
    static_assert(sizeof(Function*) == sizeof address);
    Function* function = nullptr;
    std::memcpy(&function, &address, sizeof function);
    return function;
}

bool use(const char* path)
{
    const HMODULE library = LoadLibraryA(path);
    if (library == nullptr) {
        std::printf("%s: cannot be loaded, error %lu\n", path, GetLastError());
        return false;
    }
    const auto sum = find<float(const float*, int)>(library, "_ZN10CUtils_SSE9SumFloatsEPKfi");
    const auto distance = find<void(float*, const float*, int)>(library, "_ZN10CUtils_SSE8DistanceEPfPKfi");
    const auto allocate = find<void*(unsigned, unsigned)>(library, "_ZN10CUtils_SSE14aligned_mallocEjj");
    const auto release = find<void(void*)>(library, "_ZN10CUtils_SSE12aligned_freeEPv");
    bool right = sum != nullptr && distance != nullptr && allocate != nullptr && release != nullptr;
    if (right) {
        float* const values = static_cast<float*>(allocate(7 * sizeof(float), 64));
        const float threes[7] = {3, 3, 3, 3, 3, 3, 3};
        for (int i = 0; i < 7; ++i)
            values[i] = 4;
        distance(values, threes, 7);
        const float total = sum(values, 7);
        right = reinterpret_cast<UINT_PTR>(values) % 64 == 0 && total == 35.0f;
        std::printf("sum of seven times 5: %g\n", total);
        release(values);
    }
    right = FreeLibrary(library) != 0 && GetModuleHandleA("utils_sse.dll") == nullptr && right;
    return right;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && use(argv[1]) && use(argv[1])) {
        std::printf("loaded and let go twice\n");
        return 0;
    }
    return 1;
}
