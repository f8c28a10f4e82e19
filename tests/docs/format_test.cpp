// The examples of docs/format.md against a card that the library formats and records on.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <vector>

#include "tests/interface/card_test.h"
#include "util/little_endian.h"

namespace
{

using Words = std::vector<std::string>;

/** Words of an example: hex bytes, "text" for its bytes, 00*435 for many, @380+33 for those of a file there,
   '#' begins a comment. */
Words Words_of(const std::string& example, const std::string& file = "")
{
    static const std::regex word("#[^\n]*|\"([^\"]*)\"|@(\\d+)\\+(\\d+)|(\\S+)\\*(\\d+)|(\\S+)");
    Words words;
    for (std::sregex_iterator found(example.begin(), example.end(), word), end; found != end; ++found) {
        const std::smatch& part = *found;
        Words added(part[6].matched ? 1 : 0, part[6]);
        if (part[1].matched) {
            added = Words_of(Hex(part[1]));
        } else if (part[2].matched) {
            added = Words_of(Hex(file.substr(std::stoul(part[2]), std::stoul(part[3]))));
        } else if (part[5].matched) {
            added.assign(std::stoul(part[5]), part[4]);
        }
        words.insert(words.end(), added.begin(), added.end());
    }
    return words;
}

std::string Joined(const Words& words)
{
    std::string text;
    for (size_t i = 0; i < words.size(); ++i) {
        text += words[i] + (i % 16 == 15 ? '\n' : ' ');
    }
    return text;
}

/** The fenced blocks of the document that have a name behind their language, by that name. */
std::map<std::string, std::string> Examples()
{
    static const std::regex named_fence("```\\w+ (.+)");
    std::map<std::string, std::string> examples;
    std::ifstream document(IFS_FORMAT_DOCUMENT);
    std::smatch fence;
    for (std::string line; std::getline(document, line);) {
        if (std::regex_match(line, fence, named_fence)) {
            std::string& text = examples[fence[1]];
            EXPECT_EQ(text, "") << "two examples " << line;
            while (std::getline(document, line) && line != "```") {
                text += line + '\n';
            }
        }
    }
    return examples;
}

unsigned long Le32(const std::string& bytes, size_t offset)
{
    return Get_le32(reinterpret_cast<const unsigned char*>(&bytes[offset]));
}

} // namespace

class FormatDocument : public CardTest
{
protected:
    /** The words of an example, which counts as executed then. */
    Words Take(const std::string& name, const std::string& file = "")
    {
        const auto example = m_examples.extract(name);
        EXPECT_FALSE(example.empty()) << "no example " << name;
        return example.empty() ? Words() : Words_of(example.mapped(), file);
    }
    /** Compare with an example; ".." in it stands for any byte. */
    void Expect(const std::string& name, Words actual, const std::string& file = "")
    {
        const Words expected = Take(name, file);
        for (size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
            if (expected[i] == "..") {
                actual[i] = "..";
            }
        }
        EXPECT_EQ(Joined(actual), Joined(expected)) << "example " << name;
    }
    void Expect_bytes(const std::string& name, const std::string& bytes, const std::string& file = "")
    {
        Expect(name, Words_of(Hex(bytes)), file);
    }

    void Check_volume();
    void Record_example();
    std::vector<std::string> Play();
    void Check_cuts();

    std::map<std::string, std::string> m_examples = Examples();
    std::string m_name;   ///< of the documented recording
    std::string m_open;   ///< its bytes before it is closed
    std::string m_closed; ///< and after
};

void FormatDocument::Check_volume()
{
    const unsigned long first = Le32(Image(0, 512), 454);
    const unsigned long partition = Le32(Image(0, 512), 458);
    const auto sectors = [&](size_t sector, size_t count) {
        return Image((first + sector) * 512, count * 512);
    };
    const std::string boot = sectors(0, 1);
    const unsigned long used = Le32(boot, 32);
    const unsigned long fat = Le32(boot, 36);
    const unsigned long root = 32 + 2 * fat;
    Expect_bytes("mbr", Image(0, 512));
    Expect_bytes("boot-record", boot);
    Expect_bytes("fsinfo", sectors(1, 1));
    Expect_bytes("fat", sectors(32, 1));
    EXPECT_EQ(sectors(7, 25), std::string(25 * 512, '\0'));
    EXPECT_EQ(sectors(root, 128), std::string(128 * 512, '\0'));
    Words numbers;
    for (const unsigned long number :
         {first, partition, (used - root) / 128, fat, used, partition - used, first + 32, first + root}) {
        numbers.push_back(std::to_string(number));
    }
    Expect("sizes", numbers);
}

void FormatDocument::Record_example()
{
    std::string picture = Bytes(Joined(Take("picture")));
    std::string sound = Bytes(Joined(Take("sound")));
    tm start = Utc(2026, 5, 9, 12, 0, 0);
    const int fd = Ifsi_create(&start, 1, 6, 16, 16, 25, 2, SAMPLE_RATE_INDEX_8000, 1, 1, IFS_STREAM_MAIN);
    const auto write = [fd](std::string& frame, _ifs_frame_type_ type, unsigned pts_us) {
        EXPECT_EQ(Ifsi_write(fd, frame.data(), static_cast<int>(frame.size()), nullptr, 0, type, pts_us), 0);
    };
    write(picture, IFS_FRAME_I, 60000000);
    write(sound, IFS_FRAME_AUDIO, 60100000);
    write(picture, IFS_FRAME_I, 61000000);
    char path[128] = {};
    EXPECT_EQ(Ifsi_get_file_name_v2(&start, IFS_STREAM_MAIN, path), 0);
    m_name = std::string(path).substr(m_files.size() + 1);
    m_open = File(m_name);
    Ifsi_close(fd, nullptr);
    m_closed = File(m_name);
}

/** The frames of the recording, with their headers. */
std::vector<std::string> FormatDocument::Play()
{
    std::vector<std::string> frames;
    const int fd = Ifsi_open_v3(m_name.data());
    for (Frame frame = Read(fd); frame.length > 0; frame = Read(fd)) {
        frames.push_back(frame.bytes);
    }
    Ifsi_close(fd, nullptr);
    return frames;
}

/** Check the recording cut after some bytes: the frames that play, and its size after the next mount. */
void FormatDocument::Check_cuts()
{
    const Words cuts = Take("cuts");
    ASSERT_TRUE(!cuts.empty() && cuts.size() % 3 == 0);
    const std::string unfinished = m_open + m_closed.substr(m_open.size());
    for (size_t i = 0; i < cuts.size(); i += 3) {
        std::filesystem::remove(m_files + "/system_index_main"); // goes to the card only while it is mounted
        ASSERT_EQ(Ifsi_umount(), 0);
        Put_file(m_name, unfinished.substr(0, std::stoul(cuts[i])));
        Mount();
        const bool exists = Exists(m_name);
        EXPECT_EQ(std::to_string(exists ? Play().size() : 0), cuts[i + 1]) << "after " << cuts[i] << " bytes";
        EXPECT_EQ(std::to_string(exists ? File(m_name).size() : 0), cuts[i + 2]) << cuts[i] << " bytes";
    }
}

TEST_F(FormatDocument, TellsTheTruth)
{
    Check_volume();
    Record_example();
    const size_t hidden = m_open.size();
    const size_t moov = m_closed.rfind("moov") - 4;
    Expect("name", {m_name});
    Expect_bytes("mp4-open", m_open);
    Expect_bytes("mp4-hiding-header", m_closed.substr(32, 16));
    Expect_bytes("mp4-second-fragment", m_closed.substr(hidden, moov - hidden));
    Expect_bytes("mp4-last-moov", m_closed.substr(moov), m_open);
    EXPECT_EQ(Hex(m_closed.substr(0, 32) + m_closed.substr(48, hidden - 48)),
              Hex(m_open.substr(0, 32) + m_open.substr(48)));
    Expect_bytes("index", File("system_index_main"));
    const std::vector<std::string> frames = Play();
    ASSERT_EQ(frames.size(), 3u);
    Expect_bytes("frame-video", frames[0]);
    Expect_bytes("frame-audio", frames[1]);
    Check_cuts();
    for (const auto& [name, text] : m_examples) {
        ADD_FAILURE() << "example " << name << " is not executed";
    }
}
