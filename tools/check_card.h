/** Judges the recordings and index files of a card, all by its own reading of them. */
#ifndef TOOLS_CHECK_CARD_H
#define TOOLS_CHECK_CARD_H

#include <string>
#include <vector>

#include "tools/check_findings.h"
#include "tools/check_index.h"
#include "tools/check_recording.h"

/** A file whose name is that of a recording. */
struct RecordFile {
    std::string name;
    _ifs_rec_file_ named{}; /**< what the name carries: start, stream and the two codes */
    Inspection inspection;
    const _ifs_rec_file_* entry = nullptr; /**< what its stream's index says of it; null: nothing */
};

class CardCheck
{
public:
    /**
     * Read a mounted card by its folder. Changes nothing. Throws Failure: failed, interrupted.
     *
     * @param data  verify all footage, too
     */
    explicit CardCheck(const std::string& folder, bool data = false);
    CardCheck(const CardCheck&) = delete;
    CardCheck& operator=(const CardCheck&) = delete;

    std::vector<Finding> findings() const;

    /** Finish recordings and write the index files that do not fit. Throws Failure: failed. */
    void repair();

    /** Bytes whose footage was verified, and how long all of that took. */
    uint64_t verified_bytes() const { return m_verified_bytes; }
    double verified_seconds() const { return m_verified_seconds; }

    /** In the order of their names. */
    const std::vector<RecordFile>& recordings() const { return m_recordings; }

private:
    struct Stream {
        _ifs_stream_type_ type;
        IndexFile index;
        std::vector<_ifs_rec_file_> duplicates; /**< entries beyond the first one of a recording */
        std::vector<_ifs_rec_file_> strays;     /**< entries without a file */
    };

    std::string path_of(const std::string& name) const { return m_folder + "/" + name; }
    void inspect();
    void verify();
    void take_name(const std::string& name, const std::vector<std::string>& names);
    void read_indexes();
    void match_entries(Stream& stream);
    const Stream& stream_of(const RecordFile& file) const { return m_streams[file.named.stream_type]; }
    void judge_file(const RecordFile& file, std::vector<Finding>& found) const;
    void judge_entry(const RecordFile& file, std::vector<Finding>& found) const;
    void judge_index(const Stream& stream, std::vector<Finding>& found) const;
    bool mended_entry(const RecordFile& file, _ifs_rec_file_& entry) const;
    std::vector<_ifs_rec_file_> mended_entries(const Stream& stream) const;

    std::string m_folder;
    std::vector<RecordFile> m_recordings;
    uint64_t m_verified_bytes = 0;
    double m_verified_seconds = 0;
    std::vector<Finding> m_name_findings;
    Stream m_streams[2] = {{IFS_STREAM_MAIN, {}, {}, {}}, {IFS_STREAM_SUB, {}, {}, {}}};
};

#endif
