/** Virtual cards to measure on. */
#ifndef BENCH_CARD_H
#define BENCH_CARD_H

#include <ctime>
#include <string>
#include <vector>

namespace bench
{

/** A virtual card that is in its reader while the object lives. */
class Card
{
public:
    /** Insert the card of a folder, which is made, and formatted, where there is none. */
    explicit Card(const std::string& folder, unsigned long long bytes = 64ull << 30);
    ~Card();
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    /** Mount, without waiting for the catalogue. */
    void Mount() const;
    void Unmount() const;
    /** The same by the system's calls. */
    void Mount_without_library() const;
    void Unmount_without_library() const;
    /** Wait until the catalogue is built. @return recordings in it */
    unsigned long Wait() const;

    std::string Path(const std::string& name) const;
    /** The least that a mount has to do. */
    void Read_directory_and_indexes() const;
};

constexpr char MAIN_INDEX[] = "system_index_main";
constexpr char SUB_INDEX[] = "system_index_sub";

/** Search the mounted card's main stream and fetch the results in portions. @return their number */
size_t Search(time_t begin, time_t end);

constexpr time_t FIRST_START = 1778328000; ///< 2026-05-09 12:00:00 UTC
constexpr time_t RECORDING_S = 300;        ///< length of a catalogued recording, each follows the last one

/** Order in which a card's directory lists its recordings. */
enum class Order {
    CREATION,
    ROTATED, ///< as when the card has wrapped: new names in the places of the deleted oldest ones
    SHUFFLED,
};

/**
 * Make a card with so many recordings, half of them main, half sub, and both index files.
 *
 * @param content  of each file
 */
void Make_full_card(const std::string& folder, int recordings, Order order, const std::string& content);

/** File names of such recordings, by start, main before sub. */
std::vector<std::string> Recording_names(int recordings);

/** Bytes of a finished recording of 2 s and its index item. */
struct Sample_recording {
    std::string file;
    std::string index_item;
};
Sample_recording Make_sample_recording(const std::string& folder);

} // namespace bench

#endif
