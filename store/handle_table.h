#ifndef IFS_STORE_HANDLE_TABLE_H
#define IFS_STORE_HANDLE_TABLE_H

/**
 * Allocator of the handles 1 to max_handle. It goes round: a handle just released is not handed out again
 * while others are free. No lock.
 */
class CIfsHandle
{
public:
    explicit CIfsHandle(int max_handle);
    ~CIfsHandle();
    CIfsHandle(const CIfsHandle&) = delete;
    CIfsHandle& operator=(const CIfsHandle&) = delete;

    /** Take a free handle other than the one handed out last. @return it, or -1 */
    int Ifsh_get();
    /** Release a handle; one that is out of range or free is ignored. @return 0 */
    int Ifsh_free(int handle);
    /** Whether a handle is in range, in use or not. @return 1 or 0 */
    int Ifsh_valid_handle(int handle) const;
    /** The value that stands for no handle. @return -1 */
    int Ifsh_get_invalid_handle() const;

private:
    bool In_use(int handle) const;
    int Find_free(int first, int last) const;

    int m_max_handle;
    int m_last_handle;
    unsigned char* m_bitmap; ///< bit n % 8 of byte n / 8: handle n is in use
};

/** A handle that goes back to its allocator unless it is kept. */
class Taken_handle
{
public:
    explicit Taken_handle(CIfsHandle& allocator) : m_allocator(allocator), m_handle(allocator.Ifsh_get()) {}
    ~Taken_handle() { m_allocator.Ifsh_free(m_handle); }
    Taken_handle(const Taken_handle&) = delete;
    Taken_handle& operator=(const Taken_handle&) = delete;

    bool Valid() const { return m_allocator.Ifsh_valid_handle(m_handle) != 0; }
    int Get() const { return m_handle; }
    int Keep()
    {
        const int kept = m_handle;
        m_handle = m_allocator.Ifsh_get_invalid_handle();
        return kept;
    }

private:
    CIfsHandle& m_allocator;
    int m_handle;
};

#endif
