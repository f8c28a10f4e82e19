/** One run: a card and a sequence of calls, all from a seed, with everything that comes of it printed. */
#ifndef SCRIPTS_WITNESS_HOST_RUN_H
#define SCRIPTS_WITNESS_HOST_RUN_H

#include <memory>
#include <string>
#include <vector>

#include "ifs.h"
#include "scripts/witness_host/population.h"

class Run
{
public:
    /**
     * @param folder      empty, for the card and what the run needs besides
     * @param show_calls  whether to print after each step how often it used each call on the card
     */
    Run(uint64_t seed, const std::string& folder, const Features& features, bool show_calls);

    void perform();

    /** Operations, each a step of the run that prints its results. */
    struct Operation {
        const char* name;
        unsigned weight;
        void (Run::*perform)();
    };

private:
    /** A handle that a create or an open gave, whether or not it was closed since. */
    struct Handle {
        int fd = -1;
        bool writes = false;
        bool open = false;
        tm start{};
        unsigned long long pts_us = 0;
        unsigned frames = 0;
    };

    /* run.cpp */
    void prepare();
    void step();
    bool break_a_call();
    void look();
    std::vector<std::string> catalogue();
    void say_changes(const std::vector<std::string>& lines);
    void say_calls();
    void finish();
    void insert();
    void end_in_placeholder();
    tm some_time();
    tm some_start();
    _ifs_stream_type_ some_stream();
    std::vector<Handle> open_handles(bool writes) const;
    /** A handle of a kind as a rule, opened when there is none, else any number. */
    Handle some_handle(bool writes);
    Handle* entry_of(int fd);
    _ifs_rec_file_ some_entry();
    /** An end for a recording, now and then that of another one. */
    tm some_end(const tm& start, int seconds);

    /* card_steps.cpp */
    void mount();
    void umount();
    void format();
    void is_full();
    void system_info();
    void init();
    void ticks();
    void limits();
    void free_space();
    void settings();
    void pull_card();
    void list_devices();
    void meddle();
    void mount_table();

    /* recording_steps.cpp */
    void create();
    void write();
    void write_foreign();
    void write_much();
    void close();
    void record_whole();

    /* playback_steps.cpp */
    void opened(int fd, const tm& start, bool legacy);
    void open();
    void open_by_time();
    void open_much();
    void open_by_name();
    void stat();
    void read();
    void read_all();
    void read_at_bound();
    void read_standard();
    void seek();
    void tseek();
    void file_name();
    int read_one(int fd, int size, bool moved);

    /* query_steps.cpp */
    void find_open();
    void find_next();
    void find_much();
    void find_close();
    void calendar();
    void latest();
    void transfer();

    Random m_random;
    std::string m_folder;
    Features m_features;
    bool m_show_calls;
    bool m_calm;   ///< without faults
    bool m_looks;  ///< after each step
    bool m_hoards; ///< handles, up to the last one
    std::string m_card;
    std::string m_files;
    Times m_times;
    std::unique_ptr<Population> m_population;
    std::vector<Handle> m_handles;
    std::vector<int> m_searches;
    std::vector<tm> m_starts;              ///< of recordings made
    std::vector<_ifs_rec_file_> m_entries; ///< that the last look found
    std::vector<std::string> m_seen;       ///< by the last look
    std::vector<unsigned> m_counts;        ///< of calls, at the last step
    bool m_mounted = false;
    unsigned m_level = 0xFFFFFFFF;

    static const Operation operations[];
};

#endif
