#include <algorithm>
#include <climits>

#include "ifs_legacy.h"
#include "scripts/witness_host/report.h"
#include "scripts/witness_host/run.h"

void Run::create()
{
    tm start = m_random.chance(85) ? m_times.any() : some_start();
    const _ifs_stream_type_ stream = some_stream();
    const int video_system = m_random.one_of({1, 1, 1, 1, 0, 9, 10, 266}),
              video_res = m_random.one_of({6, 6, 6, 0, 99, 100, 262});
    const int width = m_random.one_of({320, 320, 1920, 0, -1}),
              rate = m_random.one_of({1, 25, 25, 0, 255, 257});
    const int have_audio = m_random.chance(40);
    const int fd = Ifsi_create(&start, video_system, video_res, width, 240, rate, m_random.between(0, 2),
                               SAMPLE_RATE_INDEX_8000, m_random.between(1, 2), have_audio, stream);
    say("create: %d", fd);
    if (fd <= 0)
        return;
    m_handles.push_back(
        {fd, true, true, start, m_random.one_of({0ULL, 0ULL, 40000ULL, 7000000000ULL, 4294967290000ULL}), 0});
    m_starts.push_back(start);
}

void Run::write()
{
    Handle handle = some_handle(true);
    Handle* const known = entry_of(handle.fd);
    const unsigned long long step_us = m_random.one_of({40000u, 1000000u, 1000000u, 999u, 5000000u});
    std::string results;
    for (unsigned left = 1 + m_random.below(12); left > 0; left--) {
        const bool key = handle.frames++ % 4 == 0, audio = m_random.chance(15);
        std::string frame = audio ? sound(7 + m_random.below(200)) : picture(key, m_random.below(400));
        const int first = m_random.chance(70) ? static_cast<int>(frame.size())
                                              : m_random.between(0, static_cast<int>(frame.size()));
        const _ifs_frame_type_ type = audio ? IFS_FRAME_AUDIO : key ? IFS_FRAME_I : IFS_FRAME_P;
        results +=
            ' ' + std::to_string(Ifsi_write(handle.fd, frame.data(), first, frame.data() + first,
                                            static_cast<int>(frame.size()) - first, type, handle.pts_us));
        handle.pts_us += m_random.chance(3) ? 0 - step_us : step_us;
    }
    if (known) { // not always the one that was drawn: a closed one may have had its number
        known->pts_us = handle.pts_us;
        known->frames = handle.frames;
    }
    say("write %d:%s", handle.fd, results.c_str());
}

void Run::write_foreign()
{
    const Handle handle = some_handle(m_random.chance(80));
    std::string frame = m_random.chance(50) ? picture(true, 10) : "no frame at all";
    const int type = m_random.one_of({0, 1, 3, 2, 4, -1});
    const int size = m_random.chance(80) ? static_cast<int>(frame.size()) : 0;
    say("write %d, type %d: %d", handle.fd, type,
        Ifsi_write(handle.fd, frame.data(), size, nullptr, 0, static_cast<_ifs_frame_type_>(type),
                   handle.pts_us));
}

/** So many bytes that the free space is looked at; only those of no recording need not be there. */
void Run::write_much()
{
    constexpr int check_bytes = 33554432;
    const int bytes = m_random.one_of({check_bytes, check_bytes - 1, check_bytes / 2, INT_MAX});
    const int second = m_random.one_of({0, 0, 1, check_bytes});
    if (m_random.chance(60))
        free_space();
    for (int i = m_random.between(1, 3); i > 0; i--)
        say("write: %d", Ifsi_write(77, nullptr, bytes, nullptr, second, IFS_FRAME_P, 0));
    write();
}

void Run::close()
{
    if (m_hoards && m_random.chance(60))
        return;
    Handle handle = some_handle(m_random.chance(70));
    const int seconds = static_cast<int>(std::min<unsigned long long>(handle.pts_us / 1000000, 100000));
    tm end = some_end(handle.start, seconds);
    const bool given = m_random.chance(50);
    const int result = m_random.chance(90) ? Ifsi_close(handle.fd, given ? &end : nullptr)
                                           : rec_close(handle.fd, given ? &end : nullptr);
    say("close %d: %d", handle.fd, result);
    if (Handle* const known = entry_of(handle.fd))
        known->open = false;
}

/** A whole recording, as a host makes it. */
void Run::record_whole()
{
    create();
    if (m_handles.empty() || !m_handles.back().open || !m_handles.back().writes)
        return;
    Handle& handle = m_handles.back();
    const int seconds = m_random.one_of({0, 1, 5, 10, 60});
    for (int second = 0; second <= seconds; second++) {
        std::string frame = picture(second % 4 == 0, 20);
        Ifsi_write(handle.fd, frame.data(), static_cast<int>(frame.size()), nullptr, 0,
                   second % 4 == 0 ? IFS_FRAME_I : IFS_FRAME_P,
                   handle.pts_us + static_cast<unsigned>(second) * 1000000ULL);
    }
    tm end = some_end(handle.start, seconds);
    say("close: %d", Ifsi_close(handle.fd, m_random.chance(60) ? &end : nullptr));
    handle.open = false;
}
