#include "store/handle_table.h"

#include <cstddef>

namespace
{

constexpr int k_invalid_handle = -1;

} // namespace

CIfsHandle::CIfsHandle(int max_handle)
    : m_max_handle(max_handle), m_last_handle(0),
      m_bitmap(new unsigned char[static_cast<size_t>(max_handle + 8) / 8 * 8]())
{
}

CIfsHandle::~CIfsHandle()
{
    delete[] m_bitmap;
}

int CIfsHandle::Ifsh_get()
{
    int handle = Find_free(m_last_handle + 1, m_max_handle);
    if (handle == k_invalid_handle) {
        handle = Find_free(1, m_last_handle - 1);
    }
    if (handle == k_invalid_handle) {
        return k_invalid_handle;
    }
    m_bitmap[handle / 8] |= static_cast<unsigned char>(1u << (handle % 8));
    m_last_handle = handle;
    return handle;
}

int CIfsHandle::Ifsh_free(int handle)
{
    if (handle >= 0 && handle <= m_max_handle) {
        m_bitmap[handle / 8] &= static_cast<unsigned char>(~(1u << (handle % 8)));
    }
    return 0;
}

int CIfsHandle::Ifsh_valid_handle(int handle) const
{
    return handle >= 1 && handle <= m_max_handle;
}

int CIfsHandle::Ifsh_get_invalid_handle() const
{
    return k_invalid_handle;
}

bool CIfsHandle::In_use(int handle) const
{
    return (m_bitmap[handle / 8] >> (handle % 8) & 1) != 0;
}

int CIfsHandle::Find_free(int first, int last) const
{
    for (int handle = first; handle <= last; ++handle) {
        if (!In_use(handle)) {
            return handle;
        }
    }
    return k_invalid_handle;
}
