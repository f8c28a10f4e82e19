/** What `ifsctl check` can find on a card. */
#ifndef TOOLS_CHECK_FINDINGS_H
#define TOOLS_CHECK_FINDINGS_H

#include <string>

/**
 * A kind of finding. A problem is footage that cannot be read or will be deleted, or a catalogue that is
 * wrong. A note is normal after a power cut, or mended by the next mount without loss.
 */
struct FindingKind {
    const char* code;
    bool problem;
    const char* meaning;
    const char* advice;           /**< what would mend it, and what a mount makes of it */
    const char* mended = nullptr; /**< what --repair did to it; null: it does nothing */
};

namespace finding
{

constexpr const char* index_advice = "the next mount or --repair writes the index anew";

constexpr FindingKind no_partition = {"no-partition", true,
                                      "the partition table describes no first partition",
                                      "'format' writes one and erases the card"};
constexpr FindingKind no_file_system = {"no-file-system", true,
                                        "the first partition has no FAT32 boot record",
                                        "'format' makes one and erases the card"};

constexpr FindingKind unreadable = {
    "unreadable", true, "a recording that no player opens",
    "copy it off first if it matters, as the library deletes what it cannot read"};
constexpr FindingKind read_failed = {"read-failed", true, "a recording that the system fails to read",
                                     "check its permissions or try another card reader, no mount deletes it"};
constexpr FindingKind footage_lost = {
    "footage-lost", true, "an unfinished recording that is damaged before its end",
    "copy it off before the next mount, which ends the recording at the damage"};
constexpr FindingKind frame_damaged = {"frame-damaged", true, "frames that are damaged or cannot be read",
                                       "nothing mends it, but the other frames play"};
constexpr FindingKind data_damaged = {"data-damaged", true, "footage that is not what was written (--data)",
                                      "nothing mends it, and other footage of the file is as it was"};
constexpr FindingKind tables_differ = {"tables-differ", true,
                                       "tables that are not those of the footage (--data)",
                                       "nothing mends them, but a copy of the file keeps what there is"};
constexpr FindingKind no_checksums = {"no-checksums", false, "a recording without checksums (--data)",
                                      "nothing can prove or disprove its footage"};
constexpr FindingKind frame_order = {"frame-order", true, "frames that do not follow each other in the file",
                                     "nothing mends it, but a copy of the file keeps what there is"};
constexpr FindingKind no_key_frame = {"no-key-frame", true,
                                      "a recording that does not begin with a key frame",
                                      "nothing mends it, but it plays from its first key frame on"};
constexpr FindingKind wrong_name = {"wrong-name", true, "a recording's name with a wrong separator",
                                    "copy it off and give it a name of its own"};
constexpr FindingKind interrupted = {"interrupted", false, "a recording that was not finished",
                                     "--repair finishes it, or the library when it next opens it",
                                     "the recording was finished"};
constexpr FindingKind stub = {"stub", false, "a recording cut short before its first whole frame",
                              "the next mount deletes it"};
constexpr FindingKind empty = {"empty", false, "a recording of 0 bytes, without a frame",
                               "it holds nothing, and a mount deletes it unless the index lists it"};
constexpr FindingKind near_name = {"near-name", false, "a name that is almost that of a recording",
                                   "rename it like Rec_20260305_100000_061_M.mp4 to have it listed"};

constexpr FindingKind entry_differs = {"entry-differs", true, "an index entry that differs from its file",
                                       "--repair writes the entry anew, but no mount does",
                                       "the entry was written anew"};
constexpr FindingKind index_missing = {"index-missing", false,
                                       "a stream with recordings and without an index", index_advice,
                                       "the index was written"};
constexpr FindingKind index_header = {"index-header", false, "an index with a damaged beginning",
                                      index_advice, "the index was written anew"};
constexpr FindingKind index_torn = {"index-torn", false, "an index whose last entry is torn", index_advice,
                                    "the index was written anew"};
constexpr FindingKind index_item = {"index-item", false, "an index entry with a damaged beginning",
                                    index_advice, "the index was written anew"};
constexpr FindingKind index_order = {"index-order", false, "index entries not in the order of their starts",
                                     "it does no harm, and --repair sorts them", "the entries were sorted"};
constexpr FindingKind index_duplicate = {"index-duplicate", false,
                                         "a second index entry for the same recording", index_advice,
                                         "the second entry was dropped"};
constexpr FindingKind no_entry = {"no-entry", false, "a recording that the index does not list", index_advice,
                                  "the recording was entered"};
constexpr FindingKind no_file = {"no-file", false, "an index entry whose recording is not on the card",
                                 index_advice, "the entry was dropped"};

/** All kinds, problems first. */
constexpr const FindingKind* kinds[] = {
    &no_partition,  &no_file_system, &unreadable,      &read_failed,  &footage_lost,
    &frame_damaged, &data_damaged,   &tables_differ,   &frame_order,  &no_key_frame,
    &wrong_name,    &entry_differs,  &interrupted,     &stub,         &empty,
    &near_name,     &no_checksums,   &index_missing,   &index_header, &index_torn,
    &index_item,    &index_order,    &index_duplicate, &no_entry,     &no_file,
};

} // namespace finding

struct Finding {
    const FindingKind* kind;
    std::string file;     /**< name on the card, empty for the card itself */
    std::string sentence; /**< what is so here */
    bool mended = false;
};

#endif
