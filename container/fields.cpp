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

bool parse_exact(Source& source, const Box& box, ExactTables& exact)
{
    Fields fields(source, behind_uuid(box));
    bool ascend = true;
    for (auto& anchors : exact.anchors) {
        fields.list(anchors, 8, [](const uint8_t* entry) { return Anchor{be32(entry), be32(entry + 4)}; });
        ascend = ascend && samples_ascend(anchors);
    }
    fields.list(exact.headers, exact_header_bytes, [](const uint8_t* entry) {
        AdtsRun run;
        run.sample = be32(entry);
        run.header.size = entry[4] == 7 || entry[4] == 9 ? entry[4] : 0;
        std::memcpy(run.header.bytes, entry + 5, AdtsHeader::max_size);
        return run;
    });
    uint32_t frames = fields.u32();
    if (!fields.ok() || frames > fields.left() * 8 || !ascend || !samples_ascend(exact.headers))
        return false;
    Bytes order(frames / 8 + (frames % 8 != 0));
    if (!source.read(fields.pos(), order.data(), order.size()))
        return false;
    exact.order = FrameOrder(frames, std::move(order));
    return true;
}

} // namespace ifs_mp4
