#include "container/fields.h"

#include <cstring>

namespace ifs_mp4
{
namespace
{

template <class Entry>
bool samples_ascend(const std::vector<Entry>& entries)
{
    return std::is_sorted(entries.begin(), entries.end(),
                          [](const Entry& a, const Entry& b) { return a.sample < b.sample; });
}

} // namespace

size_t TableRoom::take(uint64_t entries, size_t entry_bytes)
{
    constexpr uint64_t first_entries = 16;
    if (m_first_only)
        entries = std::min(entries, first_entries);
    m_exceeded = m_exceeded || entries > m_bytes / entry_bytes;
    if (m_exceeded)
        return 0;
    m_bytes -= entries * entry_bytes;
    return static_cast<size_t>(entries);
}

bool is_uuid(Source& source, const Box& box, const uint8_t (&uuid)[uuid_bytes])
{
    const uint8_t* found =
        box.type == fourcc("uuid") && box.size() >= uuid_bytes ? source.at(box.begin, uuid_bytes) : nullptr;
    return found && std::memcmp(found, uuid, uuid_bytes) == 0;
}

Box behind_uuid(const Box& box)
{
    return {box.type, box.begin + uuid_bytes, box.end};
}

bool parse_exact(Source& source, const Box& box, TableRoom& room, ExactTables& exact)
{
    Fields fields(source, behind_uuid(box));
    bool ascend = true;
    for (auto& anchors : exact.anchors) {
        uint32_t left = fields.list(anchors, 8, room, [](const uint8_t* entry) {
            return Anchor{be32(entry), be32(entry + 4)};
        });
        fields.skip(uint64_t{left} * 8);
        ascend = ascend && samples_ascend(anchors);
    }
    uint32_t left = fields.list(exact.headers, exact_header_bytes, room, [](const uint8_t* entry) {
        AdtsRun run;
        run.sample = be32(entry);
        run.header.size = entry[4] == 7 || entry[4] == 9 ? entry[4] : 0;
        std::memcpy(run.header.bytes, entry + 5, AdtsHeader::max_size);
        return run;
    });
    fields.skip(uint64_t{left} * exact_header_bytes);
    uint32_t frames = fields.u32();
    if (!fields.ok() || frames > fields.left() * 8 || !ascend || !samples_ascend(exact.headers))
        return false;
    Bytes order(room.take(frames / 8 + (frames % 8 != 0), 1));
    if (room.exceeded() || !source.read(fields.pos(), order.data(), order.size()))
        return false;
    size_t kept = std::min(size_t{frames}, order.size() * 8);
    exact.order = FrameOrder(kept, std::move(order));
    return true;
}

} // namespace ifs_mp4
