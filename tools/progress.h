/** One line on standard error that shows how far a piece of work is. */
#ifndef TOOLS_PROGRESS_H
#define TOOLS_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

/**
 * The text of a progress line.
 *
 * @param done_ms,total_ms  stream time; a total of 0 means unknown, and leaves bar and remaining time out
 * @param elapsed_ms        time since the work began, more than 0
 * @param columns           of the terminal, at least 1; the text leaves the last one free
 */
std::string progress_text(const std::string& label, int64_t done_ms, int64_t total_ms, int64_t elapsed_ms,
                          size_t columns);

/** As above for work that is counted in pieces, of which there is at least one. */
std::string piece_progress_text(const std::string& label, int64_t done, int64_t total, int64_t elapsed_ms,
                                size_t columns);

/**
 * Shows progress while it lives. Silent when standard error is no terminal and during the first second.
 * Used by one thread.
 */
class Progress
{
public:
    /** Makes the line's text, with the arguments of progress_text(). */
    using Text = std::string (*)(const std::string&, int64_t, int64_t, int64_t, size_t);

    Progress(std::string label, int64_t total_ms, Text text = progress_text);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /** @param done_ms  stream time, or pieces, worked through so far */
    void update(int64_t done_ms);

private:
    using Clock = std::chrono::steady_clock;

    std::string m_label;
    Text m_text;
    int64_t m_total_ms;
    bool m_on_terminal;
    bool m_shown = false;
    Clock::time_point m_begin = Clock::now();
    Clock::time_point m_next_show = m_begin + std::chrono::seconds(1);
};

#endif
