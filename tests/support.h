#ifndef IFS_TESTS_SUPPORT_H
#define IFS_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>

/** A broken-down UTC time from its six fields as people write them. */
inline tm Utc(int year, int month, int day, int hour, int minute, int second)
{
    tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    return t;
}

/** A time as text, for comparisons with readable failures. */
inline std::string Text(const tm& t)
{
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,
             t.tm_hour, t.tm_min, t.tm_sec);
    return text;
}

/** Numbers as text, blanks between, for comparisons with readable failures. */
inline std::string Numbers(std::initializer_list<long long> numbers)
{
    std::string text;
    for (const long long number : numbers) {
        text += (text.empty() ? "" : " ") + std::to_string(number);
    }
    return text;
}

/** The time zone of the process while the object lives; it is back to the machine's behind. */
class Zone
{
public:
    explicit Zone(const char* name)
    {
        setenv("TZ", name, 1);
        tzset();
    }
    ~Zone()
    {
        unsetenv("TZ");
        tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
};

/** What action prints to standard output. */
inline std::string Printed(const std::function<void()>& action)
{
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

/** The same without the prefixes of the lines, "[func:...][line:...]" and the clock behind it. */
inline std::string Messages(const std::function<void()>& action)
{
    static const std::regex prefix(R"(\[func:[^\]]*\](\[[^\]]*\])*)");
    return std::regex_replace(Printed(action), prefix, "");
}

/** Whether a text holds another. */
inline testing::AssertionResult Holds(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << "no '" << part << "' in: " << text;
}

/** What a call prints that shall return a number, without prefixes. */
inline std::string Said(int result, const std::function<int()>& call)
{
    return Messages([&] { EXPECT_EQ(call(), result); });
}

/** Bytes from hex text, blanks between; everything from '#' to the end of a line is skipped. */
inline std::string Bytes(const std::string& hex)
{
    std::istringstream words(std::regex_replace(hex, std::regex("#[^\n]*"), ""));
    std::string bytes;
    for (std::string word; words >> word;) {
        bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}

/** Bytes as hex text, 16 a line. */
inline std::string Hex(const std::string& bytes)
{
    std::string hex;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char text[8];
        snprintf(text, sizeof text, "%02x%c", static_cast<unsigned char>(bytes[i]),
                 i % 16 == 15 ? '\n' : ' ');
        hex += text;
    }
    return hex;
}

#endif
