/** What a run prints beside the library's own messages. */
#ifndef SCRIPTS_WITNESS_HOST_REPORT_H
#define SCRIPTS_WITNESS_HOST_REPORT_H

#include <cstdint>
#include <ctime>
#include <string>

#include "ifs.h"

/** Print a line, with a mark in front that no message of the library has. */
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

/** A time with all its fields but the zone's name, which is a pointer. */
std::string text(const tm& t);
/** All fields of a catalogue entry. */
std::string text(const _ifs_rec_file_& rec);

/** Clear what may differ from process to process though times are equal: the zone's name and the padding. */
void clear_pointer_and_padding(tm& t);

constexpr uint64_t checksum_of_nothing = 0xcbf29ce484222325;
/** FNV-1a of bytes, going on from a checksum of what is in front of them. */
uint64_t checksum(const void* bytes, size_t size, uint64_t before = checksum_of_nothing);

/** Print name, size and checksum of all files in a folder, and the bytes of the index files among them. */
void say_files(const std::string& folder);
/** Print a checksum of all that a file holds but zeros, written or not. */
void say_image(const std::string& path);

#endif
