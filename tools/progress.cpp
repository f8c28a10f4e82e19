#include "tools/progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

#include "tools/time_text.h"

namespace
{

double share_of(int64_t done, int64_t total)
{
    return std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
}

/** The bar and the percentage. */
std::string bar_text(double share)
{
    constexpr int bar_width = 30;
    char text[64];
    int filled = static_cast<int>(share * bar_width);
    std::string bar = std::string(filled, '#') + std::string(bar_width - filled, '.');
    std::snprintf(text, sizeof text, "[%s] %3d%%", bar.c_str(), static_cast<int>(share * 100));
    return text;
}

std::string left_text(double share, int64_t elapsed_ms)
{
    if (share <= 0)
        return "? left";
    return duration_text(static_cast<int64_t>(static_cast<double>(elapsed_ms) * (1 - share) / share / 1000)) +
           " left";
}

} // namespace

std::string progress_text(const std::string& label, int64_t done_ms, int64_t total_ms, int64_t elapsed_ms)
{
    char speed[48];
    std::snprintf(speed, sizeof speed, "%.1fx real time",
                  static_cast<double>(done_ms) / static_cast<double>(elapsed_ms));
    if (total_ms <= 0)
        return label + "  " + duration_text(done_ms / 1000) + "  " + speed;
    double share = share_of(done_ms, total_ms);
    return label + "  " + bar_text(share) + "  " + speed + ", " + left_text(share, elapsed_ms);
}

std::string piece_progress_text(const std::string& label, int64_t done, int64_t total, int64_t elapsed_ms)
{
    double share = share_of(done, total);
    return label + "  " + bar_text(share) + "  " + left_text(share, elapsed_ms);
}

Progress::Progress(std::string label, int64_t total_ms, Text text)
    : m_label(std::move(label)), m_text(text), m_total_ms(total_ms), m_on_terminal(isatty(STDERR_FILENO) == 1)
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
    std::fprintf(stderr, "\r\033[K%s", m_text(m_label, done_ms, m_total_ms, elapsed_ms).c_str());
}
