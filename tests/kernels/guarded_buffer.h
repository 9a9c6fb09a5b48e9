/** @file
 *  Memory between two inaccessible pages. An array placed against either of them makes a fault of every access beyond that
 *  side; the rest of the accessible memory is poisoned, so a stray write on the other side shows as well.
 */
#ifndef UTILS_SSE_GUARDED_BUFFER_H
#define UTILS_SSE_GUARDED_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

class GuardedBuffer
{
public:
    enum class Against
    {
        end,
        start
    };

    GuardedBuffer() = default;
    GuardedBuffer(GuardedBuffer&& other) noexcept
        : mapping_(std::exchange(other.mapping_, nullptr)), area_(std::exchange(other.area_, 0))
    {}
    GuardedBuffer& operator=(GuardedBuffer&&) = delete;
    ~GuardedBuffer() { release(); }

    /** Makes room for `bytes` bytes, `offset` bytes off the inaccessible page on one side, and poisons everything.
     *  Against the end the address is a multiple of `alignment` only if `bytes` and `offset` are; otherwise the array moves
     *  forward until it is. */
    void place(std::size_t bytes, std::size_t alignment, Against side, std::size_t offset, unsigned char poison)
    {
        const std::size_t needed = bytes + offset + alignment;
        if (!mapping_ || needed > area_ || area_ > 16 * (needed + page_size()))
            allocate((needed + page_size() - 1) / page_size() * page_size());
        std::size_t position = side == Against::start ? offset : area_ - offset - bytes;
        if (side == Against::end)
            position -= position % alignment;
        data_ = area() + position;
        bytes_ = bytes;
        poison_ = poison;
        std::memset(area(), poison, area_);
    }

    unsigned char* data() const { return data_; }
    std::size_t bytes() const { return bytes_; }

    /** Where the poison around the array was overwritten first, counted from the start of the array. */
    std::optional<std::ptrdiff_t> stray_write() const
    {
        const unsigned char* const first = clean(area(), data_);
        if (first != data_)
            return first - data_;
        const unsigned char* const end = area() + area_;
        const unsigned char* const second = clean(data_ + bytes_, end);
        if (second != end)
            return second - data_;
        return std::nullopt;
    }

    /** Whether the address lies in this buffer or in one of the inaccessible pages around it. */
    bool owns(std::uintptr_t address) const
    {
        const auto begin = reinterpret_cast<std::uintptr_t>(mapping_);
        return mapping_ && address >= begin && address < begin + area_ + 2 * page_size();
    }

private:
    unsigned char* area() const { return mapping_ + page_size(); }

    // The first byte of a range that is no longer poison, or its end.
    const unsigned char* clean(const unsigned char* begin, const unsigned char* end) const
    {
        const auto length = static_cast<std::size_t>(end - begin);
        if (length == 0 || (*begin == poison_ && std::memcmp(begin, begin + 1, length - 1) == 0))
            return end;
        return std::find_if(begin, end, [&](unsigned char value) { return value != poison_; });
    }

#ifdef _WIN32
    static std::size_t page_size()
    {
        return 4096;
    }
    void allocate(std::size_t bytes)
    {
        release();
        void* const base = VirtualAlloc(nullptr, bytes + 2 * page_size(), MEM_RESERVE, PAGE_NOACCESS);
        if (!base)
            throw std::bad_alloc();
        mapping_ = static_cast<unsigned char*>(base);
        area_ = bytes;
        if (!VirtualAlloc(area(), area_, MEM_COMMIT, PAGE_READWRITE))
            throw std::bad_alloc();
    }
    void release()
    {
        if (mapping_)
            VirtualFree(mapping_, 0, MEM_RELEASE);
        mapping_ = nullptr;
    }
#else
    static std::size_t page_size()
    {
        static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        return size;
    }
    void allocate(std::size_t bytes)
    {
        release();
        void* const base = mmap(nullptr, bytes + 2 * page_size(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED)
            throw std::bad_alloc();
        mapping_ = static_cast<unsigned char*>(base);
        area_ = bytes;
        if (mprotect(area(), area_, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
    }
    void release()
    {
        if (mapping_)
            munmap(mapping_, area_ + 2 * page_size());
        mapping_ = nullptr;
    }
#endif

    unsigned char* mapping_ = nullptr; // an inaccessible page, the accessible area, another inaccessible page
    std::size_t area_ = 0;
    unsigned char* data_ = nullptr;
    std::size_t bytes_ = 0;
    unsigned char poison_ = 0;
};

#endif
