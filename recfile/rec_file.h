#ifndef IFS_RECFILE_REC_FILE_H
#define IFS_RECFILE_REC_FILE_H

#include <cstdint>
#include <string>

#include "recfile/rec_file_info.h"

/** Modes of an open, handed to the container as they are. */
enum {
    IRF_OPEN_READ = KT_MP4_READ,     /**< play; the file's plain bytes can be read, too */
    IRF_OPEN_CREATE = KT_MP4_CREATE, /**< record into a new file */
    IRF_OPEN_PROBE = KT_MP4_PROBE,   /**< learn the description only */
};

/* String functions of the name parser. They return 1 for true or success, else 0. */

/** Whether s begins with prefix. */
unsigned Is_sub_string(const char* s, const char* prefix);
/** Whether the first n characters are decimal digits; the terminator is none. */
unsigned Is_digital_string(const char* s, int n);
/** Read n decimal digits; on failure *value holds those in front of the first other character. */
unsigned Get_value(const char* s, int n, int* value);
/** Read YYYYMMDD?HHMMSS into the six calendar fields of *t: the full year, the month from 1. */
unsigned Get_ymdhms(const char* s, tm* t);

/**
 * One record file on the card: opened once, for recording, playing or probing, and discarded after its close.
 *
 * The object has no lock. Frames are written or read by one thread at a time; Irf_get_rec_info() may run
 * beside a write on the same object. Results are 0 on success and -1 on failure unless said otherwise.
 */
class CIpcRecFile
{
public:
    CIpcRecFile() = default;
    ~CIpcRecFile();
    CIpcRecFile(const CIpcRecFile&) = delete;
    CIpcRecFile& operator=(const CIpcRecFile&) = delete;

    /** Open, or with IRF_OPEN_CREATE create, the file of dir that info names. */
    int Irf_open_file(const char* dir, _rec_file_info_* info, int mode);
    int Irf_create(const char* dir, _rec_file_info_* info);
    int Irf_open(const char* dir, _rec_file_info_* info, int mode);
    int Irf_open(const char* dir, const char* fn, int mode);

    /** Append one frame, data1 followed by data2, at pts microseconds. */
    int Irf_write(char* data1, int len1, char* data2, int len2, _ifs_frame_type_ type,
                  unsigned long long pts);
    /** Read plain bytes. @return bytes read, 0 at the end */
    int Irf_read(char* buf, int size);
    /** Read the next frame with its header, see Ifsi_read(). @return *frame_len, 0 at the end */
    int Irf_read(char* buf, int size, int* payload_offset, int* payload_len, int* frame_offset,
                 int* frame_len, _ifs_frame_type_* frame_type, int* time);
    /** Position the plain bytes; 32-bit offsets. @return the new offset */
    int Irf_seek(long offset, int whence);
    /** Position the frames to a time, seconds since 1970. */
    int Irf_tseek(unsigned int t);
    /** Make what was written durable. @return 0 */
    int Irf_flush();
    /** Finalise and release everything; harmless when done before. @return 0 */
    int Irf_close();

    /** Fill the fields that info asks for; those served before a failure stay filled. */
    int Irf_get_rec_info(_rec_file_info_* info, bool unused = false);
    /** Dump a container information record. @return 0 */
    int Irf_printf_kt_mfile_info(const char* title, const kt_mfile_info_t* info);
    /** Name of the open file. @return 0 */
    int Irf_get_media_fn(std::string& fn);

    /*
     * Names of record files: Rec_YYYYMMDD_HHMMSS_RRV_T.mp4 with the resolution code RR, the video system
     * code V and the stream letter T, M or S.
     */

    /** Name without suffix, from the name fields of info, all of which must be present. */
    static int SIrf_build_base_fn(std::string& fn, const _rec_file_info_* info);
    /** Name with suffix; without one while gIfs_file_type is not 0. */
    static int SIrf_build_media_fn(std::string& fn, const _rec_file_info_* info);
    /** Base name; record files have no index files of their own. @return 0 */
    static int SIrf_build_index_fn(std::string& fn, const _rec_file_info_* info);
    /** 0 when fn has the shape of a record file name, the suffix not examined. */
    static int SIrf_is_base_fn(const std::string& fn);
    /** 0 when all from the first dot on is ".mp4" and the file type is 0. */
    static int SIrf_is_media_suffix(const std::string& fn);
    /** 0 when both hold. */
    static int SIrf_is_media_fn(const std::string& fn);
    /** @return -1 */
    static int SIrf_is_index_suffix(const std::string& fn);
    /** @return -1 */
    static int SIrf_is_index_fn(const std::string& fn);
    /** Parse a name and fill the asked-for name fields; -1 when it is none or when others were asked for. */
    static int SIrf_get_rec_info(const std::string& fn, _rec_file_info_* info);
    /** Delete dir/fn from the card. */
    static int SIrf_remove_file(const char* dir, const char* fn);

private:
    /** Whether gIfs_file_type selects the only format there is. */
    static bool SIrf_is_mp4_type();
    int Open_container(const std::string& path, const _rec_file_info_& info, int mode);
    void Forget_names();

    std::string m_dir;
    std::string m_media_fn;
    void* m_mp4 = nullptr;
    int m_fd = -1;
    unsigned char m_writable = 0;
    _rec_file_info_ m_info{};
    uint32_t m_start_seconds = 0;
    int32_t m_read_first_pts = -1;
    int32_t m_write_first_pts = -1; ///< shared word: written with each frame, read by queries
    uint32_t m_write_duration = 0;  ///< shared word, seconds
};

#endif
