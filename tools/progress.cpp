#include "tools/progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

#include "tools/terminal.h"
#include "tools/time_text.h"

namespace
{

double share_of(int64_t done, int64_t total)
{
    return std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
}

std::string bar_text(double share, size_t width)
{
    const auto filled = static_cast<size_t>(share * static_cast<double>(width));
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "] ";
}

/** Label, bar, percentage and what follows it, with as much of the bar as fits. */
std::string line_text(const std::string& label, double share, const std::string& rest, size_t columns)
{
    constexpr size_t widest = 30;
    constexpr size_t narrowest = 5;
    char percentage[16];
    std::snprintf(percentage, sizeof percentage, "%3d%%  ", static_cast<int>(share * 100));
    const std::string begin = label + "  ";
    const std::string end = percentage + rest;
    const size_t taken = begin.size() + bar_text(0, 0).size() + end.size() + 1;
    const size_t width = columns > taken ? std::min(columns - taken, widest) : 0;
    return (begin + (width < narrowest ? "" : bar_text(share, width)) + end).substr(0, columns - 1);
}

std::string left_text(double share, int64_t elapsed_ms)
{
    if (share <= 0)
        return "? left";
    return duration_text(static_cast<int64_t>(static_cast<double>(elapsed_ms) * (1 - share) / share / 1000)) +
           " left";
}

} // namespace

std::string progress_text(const std::string& label, int64_t done_ms, int64_t total_ms, int64_t elapsed_ms,
                          size_t columns)
{
    char speed[48];
    std::snprintf(speed, sizeof speed, "%.1fx real time",
                  static_cast<double>(done_ms) / static_cast<double>(elapsed_ms));
    if (total_ms <= 0)
        return (label + "  " + duration_text(done_ms / 1000) + "  " + speed).substr(0, columns - 1);
    double share = share_of(done_ms, total_ms);
    return line_text(label, share, std::string(speed) + ", " + left_text(share, elapsed_ms), columns);
}

std::string piece_progress_text(const std::string& label, int64_t done, int64_t total, int64_t elapsed_ms,
                                size_t columns)
{
    double share = share_of(done, total);
    return line_text(label, share, left_text(share, elapsed_ms), columns);
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
    const size_t columns = terminal_columns(STDERR_FILENO);
    std::fprintf(stderr, "\r\033[K%s",
                 m_text(m_label, done_ms, m_total_ms, elapsed_ms, columns > 0 ? columns : 80).c_str());
}
