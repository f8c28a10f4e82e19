#include "tools/footage.h"

#include <algorithm>
#include <utility>

#include "tools/recordings.h"

Footage::Footage(std::vector<_ifs_rec_file_> recordings, int64_t from_ms, int64_t to_ms,
                 OpenReader open_reader)
    : m_recordings(std::move(recordings)), m_from_ms(from_ms), m_to_ms(to_ms), m_open_reader(open_reader)
{
    // A recording ends in the second in which the next one starts: the last that has begun covers the time.
    while (m_current + 1 < m_recordings.size() &&
           start_seconds(m_recordings[m_current + 1]) * 1000 <= from_ms)
        ++m_current;
}

bool Footage::next(Frame* frame)
{
    for (; m_current < m_recordings.size(); ++m_current, m_reader.reset()) {
        bool read = m_reader ? m_reader->next(frame) : open_current(frame);
        while (read && frame->time_ms >= m_to_ms && frame->type == IFS_FRAME_AUDIO)
            read = m_reader->next(frame);
        if (!read)
            continue;
        if (frame->time_ms >= m_to_ms)
            break;
        if (frame->type != IFS_FRAME_AUDIO)
            m_newest_ms = std::max(m_newest_ms, frame->time_ms);
        return true;
    }
    return false;
}

/** Open the current recording and read the key frame that goes on. */
bool Footage::open_current(Frame* frame)
{
    if (!std::exchange(m_began, true))
        return open_first(frame);
    m_reader = m_open_reader(m_recordings[m_current]);
    return read_key_frame_after(*m_reader, m_newest_ms, frame);
}

bool Footage::open_first(Frame* frame)
{
    while (true) {
        const _ifs_rec_file_& recording = m_recordings[m_current];
        m_reader = m_open_reader(recording);
        bool read = read_key_frame_before(*m_reader, start_seconds(recording), m_from_ms, frame);
        // A recording's first frame may come up to a second after its start. The one before goes on so long.
        if (m_current == 0 || (read && frame->time_ms <= m_from_ms))
            return read;
        --m_current;
    }
}
