/** What a card holds before a run begins. */
#ifndef SCRIPTS_WITNESS_HOST_POPULATION_H
#define SCRIPTS_WITNESS_HOST_POPULATION_H

#include <ctime>
#include <string>
#include <vector>

#include "scripts/witness_host/footage.h"

/** Parts of a run that can be left out. */
struct Features {
    bool damage = true; ///< damaged recordings and index files
    bool faults = true; ///< calls on the card that fail
    bool syncs = true;  ///< syncs among them
    bool worker = true; ///< the overlap
    bool pulled = true; ///< cards pulled out
};

/** The times of a run: so few that recordings meet, follow and cover each other. */
class Times
{
public:
    explicit Times(Random& random);

    /** A time on the run's grid or a second beside it; rarely another day, or none of the calendar. */
    tm any();
    /** The time of a place on the grid. */
    tm at(unsigned place) const;
    /** From now on recordings end about where the next one starts. */
    void be_orderly() { m_orderly = true; }
    /** A time moved by seconds, normalised. */
    static tm moved(const tm& t, long long seconds);
    /** An end for a recording that starts then: mostly seconds later, rarely before it or years ahead. */
    tm end_of(const tm& start, int seconds);

private:
    Random& m_random;
    time_t m_first;
    int m_step_s;
    unsigned m_steps;
    bool m_orderly = false;
};

/** A record file's name, of codes as they stand. */
std::string record_name(const tm& start, int video_res, int video_system, char stream);

/** The bytes cut off, or some of them changed. */
std::string damaged(std::string bytes, Random& random);

/** Fills cards, and goes on changing them behind the library's back. */
class Population
{
public:
    Population(const std::string& files, const std::string& scratch, const Features& features, Times& times,
               Random& random);

    /** Put recordings, index files and foreign files on the card. */
    void fill();
    /** Change one file. */
    void meddle();

    /** Starts and names of the recordings put there. */
    const std::vector<tm>& starts() const { return m_starts; }
    const std::vector<std::string>& names() const { return m_names; }

private:
    void put_recording(const tm& start);
    tm some_start();
    void put_bytes(const std::string& name, const std::string& bytes);
    void put_foreign_file();
    void put_index(const char* name, std::vector<std::string> items);
    std::string index_item(const tm& start, int video_res, int video_system, int stream,
                           const Footage& footage);
    std::string footage_bytes(const Footage& footage);

    std::string m_files;
    const Features& m_features;
    Times& m_times;
    Random& m_random;
    std::vector<Footage> m_footage;
    std::vector<tm> m_starts;
    std::vector<std::string> m_names;
    std::vector<std::string> m_items[2]; // of index files, by stream
};

#endif
