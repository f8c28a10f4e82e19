#include "scripts/witness_host/population.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char index_magic[] = "system_index_v1";
constexpr int damaged_index_percent = 15;

void put_word(std::string& bytes, long value)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift);
}

void put_time(std::string& bytes, const tm& t, long zone_word)
{
    for (const long value :
         {static_cast<long>(t.tm_sec), static_cast<long>(t.tm_min), static_cast<long>(t.tm_hour),
          static_cast<long>(t.tm_mday), static_cast<long>(t.tm_mon), static_cast<long>(t.tm_year),
          static_cast<long>(t.tm_wday), static_cast<long>(t.tm_yday), static_cast<long>(t.tm_isdst),
          t.tm_gmtoff, zone_word})
        put_word(bytes, value);
}

/** A count of recordings: few as a rule, rarely so many that the catalogue's marks come into play. */
unsigned recordings_of_a_card(Random& random)
{
    const unsigned kind = random.below(100);
    if (kind < 8)
        return 0;
    if (kind < 65)
        return 1 + random.below(20);
    return kind < 85 ? 20 + random.below(60) : 130 + random.below(250);
}

void shuffle(std::vector<std::string>& items, Random& random)
{
    for (size_t i = items.size(); i > 1; i--)
        std::swap(items[i - 1], items[random.below(static_cast<unsigned>(i))]);
}

} // namespace

Times::Times(Random& random)
    : m_random(random),
      m_first(random.one_of({1778328000, 1778328000, 1778328000, 1774745940, // summer time begins
                             1767225540, 1709164700, 951782300,              // new year, leap days
                             2147483400, 2147483400, 60, 1793500000})),
      m_step_s(random.one_of({1, 5, 10, 60, 60, 600, 3600})), m_steps(random.one_of({4u, 20u, 60u, 400u}))
{
}

tm Times::any()
{
    long long seconds = m_first + static_cast<long long>(m_random.below(m_steps)) * m_step_s;
    if (m_random.chance(15))
        seconds += m_random.between(-1, 1);
    if (m_random.chance(4))
        seconds += m_random.between(-2, 2) * 86400;
    const time_t time = seconds;
    tm t{};
    gmtime_r(&time, &t);
    if (m_random.chance(1))
        t.tm_mon = m_random.between(10, 13);
    if (m_random.chance(1))
        t.tm_sec += 60;
    return t;
}

tm Times::at(unsigned place) const
{
    const time_t time = m_first + static_cast<time_t>(place) * m_step_s;
    tm t{};
    gmtime_r(&time, &t);
    return t;
}

tm Times::moved(const tm& t, long long seconds)
{
    tm copy = t;
    const time_t time = timegm(&copy) + seconds;
    gmtime_r(&time, &copy);
    return copy;
}

tm Times::end_of(const tm& start, int seconds)
{
    if (m_orderly && m_random.below(300) != 0)
        return moved(start, (m_random.chance(95) ? 1 : m_random.between(2, 12)) * m_step_s);
    const unsigned kind = m_random.below(100);
    if (kind < 50)
        return moved(start, seconds);
    if (kind < 60)
        return at(m_steps / 2); // where others end, too
    if (kind < 85)
        return moved(start, m_random.below(4) * static_cast<unsigned>(m_step_s));
    if (kind < 93)
        return moved(start, m_random.below(100000));
    if (kind < 96)
        return moved(start, -m_random.between(1, 100000));
    tm far = start;
    far.tm_year += m_random.between(1, 40);
    return far;
}

std::string record_name(const tm& start, int video_res, int video_system, char stream)
{
    char name[160];
    std::snprintf(name, sizeof name, "Rec_%04d%02d%02d_%02d%02d%02d_%02d%d_%c.mp4", start.tm_year + 1900,
                  start.tm_mon + 1, start.tm_mday, start.tm_hour, start.tm_min, start.tm_sec, video_res,
                  video_system, stream);
    return name;
}

std::string damaged(std::string bytes, Random& random)
{
    if (bytes.empty())
        return bytes;
    const unsigned size = static_cast<unsigned>(bytes.size());
    if (random.chance(50))
        return bytes.substr(0, random.below(size));
    for (unsigned changes = 1 + random.below(4); changes > 0; changes--)
        bytes[random.below(size)] = static_cast<char>(random.below(256));
    return bytes;
}

Population::Population(const std::string& files, const std::string& scratch, const Features& features,
                       Times& times, Random& random)
    : m_files(files), m_features(features), m_times(times), m_random(random),
      m_footage(make_footage(scratch, random))
{
}

void Population::fill()
{
    const unsigned count = recordings_of_a_card(m_random);
    const bool orderly = count > 100 && m_random.chance(60);
    if (orderly)
        m_times.be_orderly();
    for (unsigned i = 0; i < count; i++)
        put_recording(orderly ? m_times.at(i) : some_start());
    for (unsigned left = m_random.below(4); left > 0; left--)
        put_foreign_file();
    put_index("system_index_main", m_items[0]);
    put_index("system_index_sub", m_items[1]);
    if (m_random.chance(10))
        put_index("system_index_main_demo", m_items[m_random.below(2)]);
}

void Population::meddle()
{
    const unsigned kind = m_random.below(5);
    if (kind == 0 || m_names.empty())
        put_recording(some_start());
    else if (kind == 1)
        put_foreign_file();
    else if (kind == 2)
        unlink((m_files + "/" + m_random.one_of(m_names)).c_str());
    else if (kind == 3)
        put_bytes(m_random.one_of(m_names), footage_bytes(m_random.one_of(m_footage)));
    else
        put_index(m_random.one_of({"system_index_main", "system_index_sub"}), m_items[m_random.below(2)]);
}

tm Population::some_start()
{
    return !m_starts.empty() && m_random.chance(8) ? m_random.one_of(m_starts) : m_times.any();
}

void Population::put_recording(const tm& start)
{
    const int stream = m_random.chance(40);
    const int video_res = m_random.one_of({6, 6, 6, 6, 0, 12, 99}),
              video_system = m_random.one_of({1, 1, 1, 0, 9});
    const Footage& footage = m_random.one_of(m_footage);
    const std::string name = record_name(start, video_res, video_system, stream == 0 ? 'M' : 'S');
    m_starts.push_back(start);
    m_names.push_back(name);
    const unsigned kind = m_random.below(100);
    if (kind >= 3) // else an item without a file
        put_bytes(name, footage_bytes(footage));
    if (kind < 90)
        m_items[stream].push_back(index_item(start, video_res, video_system, stream, footage));
    if (kind == 50) // twice
        m_items[stream].push_back(index_item(start, video_res, video_system, stream, footage));
}

std::string Population::footage_bytes(const Footage& footage)
{
    if (m_features.damage && m_random.chance(4))
        return damaged(footage.bytes, m_random);
    const unsigned kind = m_random.below(100);
    return kind < 2 ? "" : kind < 3 ? "no recording" : footage.bytes;
}

void Population::put_bytes(const std::string& name, const std::string& bytes)
{
    const std::string path = m_files + "/" + name;
    unlink(path.c_str()); // a new file comes at another place of the folder
    if (m_features.damage && m_random.chance(1)) {
        mkdir(path.c_str(), 0777);
        if (m_random.chance(50))
            std::ofstream(path + "/inside") << "x";
        return;
    }
    std::ofstream(path, std::ios::binary) << bytes;
}

void Population::put_foreign_file()
{
    std::string name = record_name(m_times.any(), 6, 1, m_random.one_of({'M', 'S'}));
    switch (m_random.below(15)) {
    case 0:
        name.replace(3, 1, "-");
        break;
    case 1:
        name[12] = name[19] = name[23] = ' ';
        break;
    case 2:
        name.replace(25, 4, ".MP4");
        break;
    case 3:
        name += ".bak";
        break;
    case 4:
        name.insert(20, "1");
        break;
    case 5:
        name[24] = 'X';
        break;
    case 6:
        name.replace(8, 2, "13");
        break;
    case 7:
        name.replace(13, 6, "256199");
        break;
    case 8:
        name[0] = 'r';
        break;
    case 9:
        name = m_random.one_of({"CH01_20190101.data", "CH.data.old", "CH01.dat", "XCH01.data", "CH01"});
        break;
    case 10:
        name = m_random.one_of({"notes.txt", "Rec", "Rec_", ".mp4", "system_index_other"});
        break;
    case 11:
        name = std::string(200, 'n') + ".mp4";
        break;
    case 12:
        name = name.substr(0, m_random.below(29)) + "_";
        break;
    case 13:
        name.insert(25, "x");
        break;
    default:
        name.insert(25, ".");
    }
    put_bytes(name, m_random.chance(50) ? m_random.one_of(m_footage).bytes : "foreign");
}

std::string Population::index_item(const tm& start, int video_res, int video_system, int stream,
                                   const Footage& footage)
{
    std::string item = "ITEM";
    tm t = start;
    if (m_random.chance(10)) // what readers ignore
        t.tm_wday = t.tm_yday = t.tm_isdst = m_random.between(-1, 9);
    t.tm_gmtoff = m_random.one_of({0, 0, 0, 3600});
    put_time(item, t, m_random.one_of({0, 0, 0x7fb01234}));
    put_time(item, m_times.end_of(start, footage.seconds), 0);
    item += static_cast<char>(video_res);
    item += static_cast<char>(video_system);
    item += static_cast<char>(footage.frame_rate);
    item += '\0';
    for (const int value :
         {m_random.chance(2) ? 7 : stream, footage.width, footage.height, footage.have_audio, 2, 11, 1,
          m_random.chance(3) ? m_random.between(-1, 1) : static_cast<int>(footage.bytes.size())})
        put_word(item, value);
    if (m_features.damage && m_random.below(300) == 0)
        item[4 + m_random.below(static_cast<unsigned>(item.size()) - 4)] =
            static_cast<char>(m_random.below(256));
    return item;
}

void Population::put_index(const char* name, std::vector<std::string> items)
{
    const unsigned kind = m_random.below(100);
    if (kind < 10)
        return; // as it was, or none
    if (kind < 20)
        shuffle(items, m_random);
    else if (kind < 30)
        items.resize(m_random.below(static_cast<unsigned>(items.size()) + 1));
    std::string bytes(index_magic);
    for (const std::string& item : items)
        bytes += item;
    if (m_features.damage && m_random.chance(damaged_index_percent))
        bytes = damaged(bytes, m_random);
    put_bytes(name, bytes);
}
