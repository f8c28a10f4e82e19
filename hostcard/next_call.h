/** The call behind an interposed one: the next definition of its name, a sanitizer's or the C library's. */
#ifndef HOSTCARD_NEXT_CALL_H
#define HOSTCARD_NEXT_CALL_H

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>

namespace hostcard
{

/**
 * Looked up at its first use. Constant-initialised and without a lock, so that it works before any
 * constructor has run and from any thread.
 */
template <typename Signature>
class NextCall
{
public:
    constexpr explicit NextCall(const char* name) : m_name(name) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments)
    {
        return look_up()(arguments...);
    }

private:
    Signature* look_up()
    {
        Signature* call = m_call.load(std::memory_order_relaxed);
        if (call)
            return call;
        call = reinterpret_cast<Signature*>(dlsym(RTLD_NEXT, m_name));
        if (!call)
            abort();
        m_call.store(call, std::memory_order_relaxed);
        return call;
    }

    const char* m_name;
    std::atomic<Signature*> m_call{nullptr};
};

} // namespace hostcard

#endif
