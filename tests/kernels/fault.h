/** @file
 *  Calls that may fault. POSIX: the fault comes back as a value. Windows: the description of the call is printed before the
 *  process ends.
 */
#ifndef UTILS_SSE_FAULT_H
#define UTILS_SSE_FAULT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#ifdef _WIN32
#include <cstdio>
#include <cstdlib>
#include <windows.h>
#else
#include <csetjmp>
#include <csignal>
#endif

/** Runs call(). If it faults, the result is describe(address of the fault). */
std::optional<std::string> fault_of(const std::function<void()>& call,
                                    const std::function<std::string(std::uintptr_t)>& describe);

#ifdef _WIN32

namespace fault_detail {
inline const std::function<std::string(std::uintptr_t)>* describe_current = nullptr;

inline LONG CALLBACK on_exception(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (!describe_current ||
        (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION && record.ExceptionCode != EXCEPTION_ILLEGAL_INSTRUCTION))
        return EXCEPTION_CONTINUE_SEARCH;
    const auto address = record.NumberParameters > 1 ? static_cast<std::uintptr_t>(record.ExceptionInformation[1]) : 0;
    std::fprintf(stderr, "%s\n", (*describe_current)(address).c_str());
    std::fflush(stderr);
    std::_Exit(3);
}
} // namespace fault_detail

inline std::optional<std::string> fault_of(const std::function<void()>& call,
                                           const std::function<std::string(std::uintptr_t)>& describe)
{
    static void* const installed = AddVectoredExceptionHandler(1, fault_detail::on_exception);
    (void)installed;
    fault_detail::describe_current = &describe;
    call();
    fault_detail::describe_current = nullptr;
    return std::nullopt;
}

#else

namespace fault_detail {
// Faults come to the thread that makes them.
inline thread_local sigjmp_buf before_call;
inline thread_local volatile std::sig_atomic_t calling = 0;
inline thread_local volatile std::uintptr_t fault_address = 0;
constexpr int signals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE};

inline void on_signal(int signal, siginfo_t* info, void*)
{
    if (!calling) { // not ours: die of it as usual
        std::signal(signal, SIG_DFL);
        return;
    }
    fault_address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    siglongjmp(before_call, signal);
}

inline bool install()
{
    struct sigaction action = {};
    action.sa_sigaction = on_signal;
    action.sa_flags = SA_SIGINFO | SA_NODEFER; // NODEFER: jumping out leaves nothing blocked
    for (const int signal : signals)
        sigaction(signal, &action, nullptr);
    return true;
}

// Apart from its caller, so that no local variable of the caller is alive across sigsetjmp.
[[gnu::noinline]] inline bool survives(const std::function<void()>& call)
{
    if (sigsetjmp(before_call, 0) != 0) {
        calling = 0;
        return false;
    }
    calling = 1;
    call();
    calling = 0;
    return true;
}
} // namespace fault_detail

inline std::optional<std::string> fault_of(const std::function<void()>& call,
                                           const std::function<std::string(std::uintptr_t)>& describe)
{
    static const bool installed = fault_detail::install();
    (void)installed;
    if (fault_detail::survives(call))
        return std::nullopt;
    return describe(fault_detail::fault_address);
}

#endif
#endif
