/** A virtual card: its devices, its mount, its space. Callers serialise the calls. */
#ifndef HOSTCARD_CARD_H
#define HOSTCARD_CARD_H

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "hostcard/volume.h"

namespace hostcard
{

/** Set errno. @return -1 */
inline int refuse(int error)
{
    errno = error;
    return -1;
}

/** What a path names. */
enum class Place {
    elsewhere, /**< nothing of the card */
    device_folder,
    disk,
    partition, /**< present only while the table last read describes it */
    no_device, /**< any other name below the device folder */
    mount_point,
    file /**< anything below the mount point */
};

/** Part of the image, bytes. */
struct Window {
    std::uint64_t start;
    std::uint64_t length;

    bool empty() const { return length == 0; }
};

struct Geometry {
    unsigned heads;
    unsigned sectors;
};

/** Descriptor, closed at the end of its life. */
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    const int m_fd;
};

class Card
{
public:
    /** As hostcard_create(). */
    static int create(const std::string& folder, std::uint64_t size, Geometry geometry);

    /** Open a card's folder and read its partition table. @return null with errno set as hostcard_insert() */
    static std::unique_ptr<Card> open(const char* folder);

    Place locate(const char* path) const;
    bool is_mount_point(const char* directory) const;
    const std::string& image_path() const { return m_image_path; }
    const std::string& mount_point() const { return m_mount_point; }

    /** Names of the card's devices, separated by a blank. */
    std::string device_names() const;

    /** Where a device lies in the image. @param device  Disk or Partition */
    Window window(Place device) const;
    Geometry geometry() const { return m_geometry; }
    unsigned cylinders() const;

    /** Take the partition from the table as it is now on the card. */
    void read_table();

    /**
     * Prepare for a write of sectors: a new boot record of the partition empties the mount point.
     *
     * @return 0, or -1 with errno: it cannot be emptied
     */
    int before_write(std::uint64_t start, std::uint64_t length);

    /** The mounted volume, none while there is none. */
    const std::optional<Volume>& volume() const { return m_volume; }

    /** As mount(2). @param device  Disk or Partition */
    int mount(Place device, const char* directory, const char* type);
    void umount() { m_volume.reset(); }

    /**
     * Find how much of a write to a file of the mounted card fits.
     *
     * @param size          of the file now
     * @param offset,count  of the write
     * @return bytes that fit, 0 with errno set when none does
     */
    std::uint64_t room(std::uint64_t size, std::uint64_t offset, std::uint64_t count);

    /** Account for a file of the mounted card that has grown, shrunk or gone, bytes. */
    void resized(std::uint64_t old_size, std::uint64_t new_size);

    /** What statfs() reports of the mounted volume. @param free_bytes  negative: the true ones */
    struct statfs sizes(long long free_bytes);

private:
    Card(const std::string& folder, Geometry geometry);
    std::int64_t free_clusters();
    void measure();

    const std::string m_image_path;
    const std::string m_mount_point;
    const Descriptor m_image;
    const Geometry m_geometry;
    Window m_partition{};
    std::string m_mounted_as; // the name of the mount point that the host used
    std::optional<Volume> m_volume;
    // Counted along once it was asked for, because measuring walks through the whole card.
    std::optional<std::int64_t> m_free_clusters;
};

} // namespace hostcard

#endif
