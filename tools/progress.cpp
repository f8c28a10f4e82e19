#include "tools/progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

#include "tools/time_text.h"

std::string progress_text(const std::string& label, int64_t done_ms, int64_t total_ms, int64_t elapsed_ms)
{
    constexpr int bar_width = 30;
    char text[160];
    double speed = static_cast<double>(done_ms) / static_cast<double>(elapsed_ms);
    if (total_ms <= 0) {
        std::snprintf(text, sizeof text, "%s  %s  %.1fx real time", label.c_str(),
                      duration_text(done_ms / 1000).c_str(), speed);
        return text;
    }
    double share = std::min(1.0, static_cast<double>(done_ms) / static_cast<double>(total_ms));
    int filled = static_cast<int>(share * bar_width);
    std::string bar = std::string(filled, '#') + std::string(bar_width - filled, '.');
    std::string left = "?";
    if (done_ms > 0)
        left =
            duration_text(static_cast<int64_t>(static_cast<double>(total_ms) * (1 - share) / speed / 1000));
    std::snprintf(text, sizeof text, "%s  [%s] %3d%%  %.1fx real time, %s left", label.c_str(), bar.c_str(),
                  static_cast<int>(share * 100), speed, left.c_str());
    return text;
}

Progress::Progress(std::string label, int64_t total_ms)
    : m_label(std::move(label)), m_total_ms(total_ms), m_on_terminal(isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    if (m_shown)
        std::fputs("\r\033[K", stderr);
}

void Progress::update(int64_t done_ms)
{
    Clock::time_point now = Clock::now();
    if (!m_on_terminal || now < m_next_show)
        return;
    m_next_show = now + std::chrono::milliseconds(200);
    m_shown = true;
    int64_t elapsed_ms = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_begin).count();
    std::fprintf(stderr, "\r\033[K%s", progress_text(m_label, done_ms, m_total_ms, elapsed_ms).c_str());
}
