/** The recordings on the mounted card. */
#ifndef TOOLS_RECORDINGS_H
#define TOOLS_RECORDINGS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ifs.h"

/** Record files that a card holds: of a directory's 65,535 entries each takes four, an index file three. */
constexpr unsigned max_record_files = 16382;
/** From this number on the library deletes the oldest, one a second: room for those that come meanwhile. */
constexpr unsigned file_limit = 16000;

/**
 * The recordings of a stream that overlap a time range, bounds included, in the order of their start.
 * Throws Failure (failed): not mounted.
 */
std::vector<_ifs_rec_file_> find_recordings(_ifs_stream_type_ stream, int64_t from_s, int64_t to_s);

/** "main" or "sub". */
std::string stream_name(_ifs_stream_type_ stream);

/** Read a stream's name. Throws Failure (usage). */
_ifs_stream_type_ parse_stream(const std::string& name);

int64_t start_seconds(const _ifs_rec_file_& recording);
int64_t end_seconds(const _ifs_rec_file_& recording);

/** Name of a recording's file, without its folder. */
std::string file_name(const _ifs_rec_file_& recording);

/** Name of a recording's file on the inserted card, with its folder. */
std::string file_path(const _ifs_rec_file_& recording);

/** Start and end as a person reads them. */
std::string span_text(const _ifs_rec_file_& recording);

/**
 * The recordings as a table with a heading, a line each, or a sentence when there are none.
 *
 * @param columns  of the terminal, where columns of the table are left out to fit; 0: no limit
 */
std::string recordings_table(const std::vector<_ifs_rec_file_>& recordings, size_t columns);

/** The recordings as a JSON array of objects, which the help of list describes. */
nlohmann::json recordings_json(const std::vector<_ifs_rec_file_>& recordings);

#endif
