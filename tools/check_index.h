/** The index files of a card, each the catalogue of a stream: reads and writes them without the library. */
#ifndef TOOLS_CHECK_INDEX_H
#define TOOLS_CHECK_INDEX_H

#include <cstddef>
#include <string>
#include <vector>

#include "ifs.h"

struct IndexFile {
    bool exists = false;
    bool header_fits = false;
    size_t damaged_items = 0;            /**< that do not begin like one */
    size_t torn_bytes = 0;               /**< behind the last whole item */
    std::vector<_ifs_rec_file_> entries; /**< of all sound items, in the order of the file */

    /** Whether the library takes it. It ignores the whole file for any damage. */
    bool loads() const { return exists && header_fits && damaged_items == 0 && torn_bytes == 0; }
};

/** Name of a stream's index file on the card. */
std::string index_name(_ifs_stream_type_ stream);

/** Throws Failure (failed): it exists and cannot be read. */
IndexFile read_index(const std::string& path);

/** An index file with these entries, byte for byte as the library writes it. */
std::string index_image(const std::vector<_ifs_rec_file_>& entries);

/** Replace an index file, so that a power cut leaves the old one or the new one. Throws Failure: failed. */
void write_index(const std::string& path, const std::vector<_ifs_rec_file_>& entries);

#endif
