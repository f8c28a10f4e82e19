// The examples of docs/format.md against a card that the library formats and records on.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <vector>

#include "tests/interface/card_test.h"

namespace
{

using Words = std::vector<std::string>;

/** Words of an example: hex bytes, "text" for its bytes, 00*435 for many, '#' begins a comment. */
Words Words_of(const std::string& example)
{
    static const std::regex word("#[^\n]*|\"([^\"]*)\"|(\\S+)\\*(\\d+)|(\\S+)");
    Words words;
    for (std::sregex_iterator found(example.begin(), example.end(), word), end; found != end; ++found) {
        const std::smatch& part = *found;
        if (part[1].matched) {
            const Words bytes = Words_of(Hex(part[1]));
            words.insert(words.end(), bytes.begin(), bytes.end());
        } else if (part[3].matched) {
            words.insert(words.end(), std::stoul(part[3]), part[2]);
        } else if (part[4].matched) {
            words.push_back(part[4]);
        }
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
std::map<std::string, Words> Examples()
{
    std::map<std::string, Words> examples;
    std::ifstream document(IFS_FORMAT_DOCUMENT);
    const std::string fence = "```";
    for (std::string line; std::getline(document, line);) {
        const size_t blank = line.find(' ');
        if (line.compare(0, fence.size(), fence) != 0 || blank == std::string::npos) {
            continue;
        }
        const std::string name = line.substr(blank + 1);
        std::string text;
        while (std::getline(document, line) && line != fence) {
            text += line + '\n';
        }
        EXPECT_TRUE(examples.emplace(name, Words_of(text)).second) << "two examples " << name;
    }
    return examples;
}

unsigned long Le32(const std::string& bytes, size_t offset)
{
    const auto at = [&](size_t i) {
        return static_cast<unsigned long>(static_cast<unsigned char>(bytes[offset + i]));
    };
    return at(0) | at(1) << 8 | at(2) << 16 | at(3) << 24;
}

} // namespace

/** The documented recording, as it lies on the card before and after it is closed. */
struct Recording {
    std::string name;
    std::string open_bytes;
    std::string closed_bytes;
};

class FormatDocument : public CardTest
{
protected:
    /** Compare with an example; ".." in it stands for any byte. */
    void Expect(const std::string& name, Words actual)
    {
        const Words expected = Take(name);
        for (size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
            if (expected[i] == "..") {
                actual[i] = "..";
            }
        }
        EXPECT_EQ(Joined(actual), Joined(expected)) << "example " << name;
    }
    void Expect_bytes(const std::string& name, const std::string& bytes)
    {
        Expect(name, Words_of(Hex(bytes)));
    }
    /** Put the bytes of a file in the place of an example's references to them, e.g. "@380+33". */
    void Resolve(const std::string& name, const std::string& file)
    {
        Words resolved;
        for (const std::string& word : m_examples[name]) {
            const bool reference = word[0] == '@';
            const Words bytes = reference
                                    ? Words_of(Hex(file.substr(std::stoul(word.substr(1)),
                                                               std::stoul(word.substr(word.find('+'))))))
                                    : Words{word};
            resolved.insert(resolved.end(), bytes.begin(), bytes.end());
        }
        m_examples[name] = resolved;
    }
    Words Take(const std::string& name)
    {
        EXPECT_EQ(m_examples.count(name), 1u) << "no example " << name;
        const Words words = m_examples[name];
        m_examples.erase(name);
        return words;
    }

    void Check_volume();
    Recording Record_example();
    void Check_frames(const std::string& name);
    void Check_cuts(const Recording& recording);

    std::map<std::string, Words> m_examples = Examples();
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
    EXPECT_EQ(Hex(sectors(6, 1)), Hex(boot));
    EXPECT_EQ(sectors(7, 25), std::string(25 * 512, '\0'));
    EXPECT_EQ(sectors(32, fat), sectors(32 + fat, fat));
    EXPECT_EQ(sectors(root, 128), std::string(128 * 512, '\0'));
    Words numbers;
    for (const unsigned long number :
         {first, partition, (used - root) / 128, fat, used, partition - used, first + 32, first + root}) {
        numbers.push_back(std::to_string(number));
    }
    Expect("sizes", numbers);
}

Recording FormatDocument::Record_example()
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
    Recording recording;
    recording.name = std::string(path).substr(m_files.size() + 1);
    recording.open_bytes = File(recording.name);
    Ifsi_close(fd, nullptr);
    recording.closed_bytes = File(recording.name);
    return recording;
}

void FormatDocument::Check_frames(const std::string& name)
{
    std::string copy = name;
    const int fd = Ifsi_open_v3(copy.data());
    for (const char* example : {"frame-video", "frame-audio"}) {
        Expect_bytes(example, Read(fd).bytes);
    }
    Ifsi_close(fd, nullptr);
}

/** Check a recording cut after some bytes: the frames that play, and its size after the next mount. */
void FormatDocument::Check_cuts(const Recording& recording)
{
    const Words cuts = Take("cuts");
    ASSERT_TRUE(!cuts.empty() && cuts.size() % 3 == 0);
    std::string unfinished = recording.closed_bytes;
    unfinished.replace(0, recording.open_bytes.size(), recording.open_bytes);
    for (size_t i = 0; i < cuts.size(); i += 3) {
        std::filesystem::remove(m_files + "/system_index_main"); // goes to the card only while it is mounted
        ASSERT_EQ(Ifsi_umount(), 0);
        Put_file(recording.name, unfinished.substr(0, std::stoul(cuts[i])));
        Mount();
        int frames = 0;
        if (Exists(recording.name)) {
            std::string name = recording.name;
            const int fd = Ifsi_open_v3(name.data());
            while (Read(fd).length > 0) {
                ++frames;
            }
            Ifsi_close(fd, nullptr);
        }
        const size_t bytes = Exists(recording.name) ? File(recording.name).size() : 0;
        EXPECT_EQ(std::to_string(frames) + " " + std::to_string(bytes), cuts[i + 1] + " " + cuts[i + 2])
            << "after " << cuts[i] << " bytes";
    }
}

TEST_F(FormatDocument, TellsTheTruth)
{
    Check_volume();
    const Recording recording = Record_example();
    const std::string& closed = recording.closed_bytes;
    const size_t hidden = recording.open_bytes.size();
    const size_t moov = closed.rfind("moov") - 4;
    Expect("name", {recording.name});
    Expect_bytes("mp4-open", recording.open_bytes);
    Expect_bytes("mp4-hiding-header", closed.substr(32, 16));
    Expect_bytes("mp4-second-fragment", closed.substr(hidden, moov - hidden));
    Resolve("mp4-last-moov", recording.open_bytes);
    Expect_bytes("mp4-last-moov", closed.substr(moov));
    EXPECT_EQ(Hex(closed.substr(0, 32) + closed.substr(48, hidden - 48)),
              Hex(recording.open_bytes.substr(0, 32) + recording.open_bytes.substr(48)));
    Expect_bytes("index", File("system_index_main"));
    Check_frames(recording.name);
    Check_cuts(recording);
    for (const auto& [name, words] : m_examples) {
        ADD_FAILURE() << "example " << name << " is not executed";
    }
}
