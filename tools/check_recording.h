/** Judges one recording's file by itself, and leaves it as it is. */
#ifndef TOOLS_CHECK_RECORDING_H
#define TOOLS_CHECK_RECORDING_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "container/verify.h"
#include "kt_mp4.h"
#include "tools/check_findings.h"

enum class RecordingState {
    finished,
    interrupted, /**< its frames are found by a walk through its fragments */
    stub,        /**< interrupted before a frame was whole */
    empty,
    unreadable
};

/** The state as results name it. */
const char* state_name(RecordingState state);

struct Inspection {
    RecordingState state = RecordingState::unreadable;
    kt_mfile_info_t info{};  /**< as the container describes it; zeros unless finished or interrupted */
    uint64_t size = 0;       /**< bytes */
    uint64_t frames_end = 0; /**< offset behind the last frame of a recording of ours */
    uint64_t frames = 0;     /**< of both tracks */
    uint64_t torn_bytes = 0; /**< of what was interrupted: torn, or damaged and left out */
    std::optional<uint64_t> damaged_at_ms; /**< time of the first frame that cannot be read */
    bool read_failed = false;              /**< for another reason than the end of the file */
    bool described = false; /**< a mount takes it for sound, for it only reads the description */
    bool footage_lost =
        false; /**< whole fragments lie behind the damage, of more time than a power cut may cost */
    std::vector<Finding> frame_findings;               /**< without the file's name */
    std::optional<ifs_mp4::Verification> verification; /**< of a recording of ours, where it was asked for */

    bool playable() const
    {
        return state == RecordingState::finished || state == RecordingState::interrupted;
    }
};

/**
 * Look at every frame's header and place. A file that is no regular one counts as unreadable.
 *
 * @param verified  if set, verify all footage, too; called with ascending positions in the file
 */
Inspection inspect_recording(const std::string& path, const std::function<void(uint64_t)>& verified = {});

/** Finish an interrupted recording, as the library does. Another inspection shows whether it succeeded. */
void finish_recording(const std::string& path);

#endif
