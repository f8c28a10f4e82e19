/** Reading the content of boxes, field by field. Every byte is taken for hostile. */
#ifndef CONTAINER_FIELDS_H
#define CONTAINER_FIELDS_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "container/file.h"
#include "container/layout.h"
#include "container/tables.h"

namespace ifs_mp4
{

/** Memory that tables may take. */
class TableRoom
{
public:
    /** @param first_only  keep of each list only what it takes to know the first frame */
    explicit TableRoom(uint64_t bytes, bool first_only = false) : m_bytes(bytes), m_first_only(first_only) {}

    /** @return entries to keep, of so many; none when there is no room for them */
    size_t take(uint64_t entries, size_t entry_bytes);
    bool exceeded() const { return m_exceeded; }

private:
    uint64_t m_bytes;
    bool m_first_only;
    bool m_exceeded = false;
};

/** Reads the fields of a box one behind the other; zeros and not ok() once one lies past its end. */
class Fields
{
public:
    Fields(Source& source, const Box& box) : m_source(source), m_pos(box.begin), m_end(box.end) {}

    bool ok() const { return m_ok; }
    uint64_t left() const { return m_end - m_pos; }
    uint64_t pos() const { return m_pos; }
    const uint8_t* bytes(size_t size)
    {
        const uint8_t* data = m_ok && size <= left() ? m_source.at(m_pos, size) : nullptr;
        m_ok = data != nullptr;
        m_pos += m_ok ? size : 0;
        return data;
    }
    void skip(uint64_t size)
    {
        m_ok = m_ok && size <= left();
        m_pos += m_ok ? size : 0;
    }
    uint32_t u8() { return number<1>(); }
    uint32_t u16() { return number<2>(); }
    uint32_t u32() { return number<4>(); }
    uint64_t u64()
    {
        uint64_t high = u32();
        return high << 32 | u32();
    }
    /** A count of entries, each of which takes so many bytes of the box. */
    uint32_t count(size_t entry_bytes)
    {
        uint32_t entries = u32();
        m_ok = m_ok && entries <= left() / entry_bytes;
        return m_ok ? entries : 0;
    }
    /** Hand entries of so many bytes to a function, as long as they can be read. */
    template <class Function>
    void each(size_t entries, size_t entry_bytes, Function function)
    {
        while (m_ok && entries > 0) {
            size_t some = std::min(entries, Source::window_bytes / entry_bytes);
            const uint8_t* entry = bytes(some * entry_bytes);
            for (size_t i = 0; entry && i < some; ++i)
                function(entry + i * entry_bytes);
            entries -= some;
        }
    }
    /**
     * A count and then that many numbers, in one read since these are the longest tables.
     * @return numbers that were not kept
     */
    uint32_t list(std::vector<uint32_t>& numbers, TableRoom& room)
    {
        uint32_t total = count(4);
        numbers.resize(take(total, 4, room));
        auto* data = reinterpret_cast<uint8_t*>(numbers.data());
        m_ok = m_ok && m_source.read(m_pos, data, numbers.size() * 4);
        m_pos += numbers.size() * 4;
        for (uint32_t& number : numbers)
            number = be32(reinterpret_cast<const uint8_t*>(&number));
        return total - static_cast<uint32_t>(numbers.size());
    }
    /** A count of entries and then these, each read by a function. @return entries that were not kept */
    template <class Entry, class Function>
    uint32_t list(std::vector<Entry>& entries, size_t entry_bytes, TableRoom& room, Function read_entry)
    {
        uint32_t total = count(entry_bytes);
        entries.resize(take(total, sizeof(Entry), room));
        Entry* next = entries.data();
        each(entries.size(), entry_bytes, [&](const uint8_t* entry) { *next++ = read_entry(entry); });
        return total - static_cast<uint32_t>(entries.size());
    }

private:
    size_t take(uint32_t entries, size_t entry_bytes, TableRoom& room)
    {
        size_t kept = room.take(entries, entry_bytes);
        m_ok = m_ok && !room.exceeded();
        return kept;
    }
    template <size_t size>
    uint32_t number()
    {
        const uint8_t* data = bytes(size);
        uint32_t value = 0;
        for (size_t i = 0; data && i < size; ++i)
            value = value << 8 | data[i];
        return value;
    }

    Source& m_source;
    uint64_t m_pos;
    uint64_t m_end;
    bool m_ok = true;
};

/** Hand each box of a range to a function. @return false when one is damaged or the function says so */
template <class Function>
bool each_box(Source& source, uint64_t begin, uint64_t end, Function function)
{
    Box box;
    while (begin < end) {
        if (!next_box(source, begin, end, box) || !function(box))
            return false;
    }
    return true;
}

/** Whether a box is one of our own. */
bool is_uuid(Source& source, const Box& box, const uint8_t (&uuid)[uuid_bytes]);

/** The content of a box of our own. */
Box behind_uuid(const Box& box);

/** Read the box "exact". @return false: damaged, too large, or an I/O error */
bool parse_exact(Source& source, const Box& box, TableRoom& room, ExactTables& exact);

} // namespace ifs_mp4

#endif
