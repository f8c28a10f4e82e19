#include "hostcard/card.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

// This file calls open64() and the like. They are not interposed, so that its callers may hold the lock that
// open() takes, and they serve files and folders whose numbers a 32-bit machine's plain calls refuse.

namespace hostcard
{

namespace
{

constexpr char device_folder[] = "/dev/hd";
constexpr std::uint64_t card_bytes_min = 1 << 20;
constexpr unsigned table_offset = 446, table_entries = 4, table_entry_bytes = 16;

bool is_valid(Geometry geometry)
{
    return geometry.heads >= 1 && geometry.heads <= 255 && geometry.sectors >= 1 && geometry.sectors <= 63;
}

std::uint64_t file_bytes(int fd)
{
    struct stat64 status = {};
    return fstat64(fd, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

bool read_sector(int fd, std::uint64_t offset, std::uint8_t (&sector)[sector_bytes])
{
    return pread64(fd, sector, sector_bytes, static_cast<off64_t>(offset)) == sector_bytes;
}

std::string real_path(const char* path)
{
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path, nullptr), free);
    if (!real && errno == ENOMEM)
        throw std::bad_alloc();
    return real ? real.get() : "";
}

/** What follows a folder in a path, without slashes in front; null: the path is not at or below it. */
const char* below(std::string_view folder, const char* path)
{
    if (folder.empty() || strncmp(path, folder.data(), folder.size()) != 0)
        return nullptr;
    const char* rest = path + folder.size();
    if (*rest != '\0' && *rest != '/')
        return nullptr;
    return rest + strspn(rest, "/");
}

bool is_empty_folder(const std::string& path)
{
    struct dirent64** entries = nullptr;
    const int count = scandir64(path.c_str(), &entries, nullptr, nullptr);
    for (int i = 0; i < count; i++)
        free(entries[i]);
    free(entries);
    return count == 2; // "." and ".."
}

bool make_image(const std::string& path, std::uint64_t size)
{
    const Descriptor image(open64(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    return image.get() >= 0 && ftruncate64(image.get(), static_cast<off64_t>(size)) == 0;
}

bool write_geometry(const std::string& path, Geometry geometry)
{
    const Descriptor file(open64(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    return file.get() >= 0 &&
           dprintf(file.get(), "heads %u sectors %u\n", geometry.heads, geometry.sectors) > 0;
}

std::optional<Geometry> read_geometry(const std::string& path)
{
    const Descriptor file(open64(path.c_str(), O_RDONLY | O_CLOEXEC));
    char text[64] = "";
    if (file.get() < 0 || pread64(file.get(), text, sizeof text - 1, 0) < 0)
        return std::nullopt;
    Geometry geometry{};
    if (sscanf(text, "heads %3u sectors %3u", &geometry.heads, &geometry.sectors) != 2 ||
        !is_valid(geometry)) {
        errno = EINVAL;
        return std::nullopt;
    }
    return geometry;
}

/** The first partition of an MBR as a kernel sees it: cut at the device's end, none if it begins behind. */
Window first_partition(const std::uint8_t (&table)[sector_bytes], std::uint64_t device_sectors)
{
    if (table[510] != 0x55 || table[511] != 0xAA)
        return {};
    for (unsigned i = 0; i < table_entries; i++)
        if (table[table_offset + i * table_entry_bytes] & 0x7F) // neither active nor inactive: no table
            return {};
    const std::uint64_t first = le32(table + table_offset + 8);
    const std::uint64_t count = le32(table + table_offset + 12);
    if (first >= device_sectors)
        return {};
    return {first * sector_bytes, std::min(count, device_sectors - first) * sector_bytes};
}

} // namespace

Descriptor::~Descriptor()
{
    if (m_fd >= 0)
        close(m_fd);
}

int Card::create(const std::string& folder, std::uint64_t size, Geometry geometry)
{
    if (size < card_bytes_min || size > LLONG_MAX || !is_valid(geometry))
        return refuse(EINVAL);
    const std::string image = folder + "/card.img", conf = folder + "/card.conf", files = folder + "/files";
    const bool made = mkdir(folder.c_str(), 0777) == 0;
    if (!made && (errno != EEXIST || !is_empty_folder(folder)))
        return -1;
    if (make_image(image, size) && write_geometry(conf, geometry) && mkdir(files.c_str(), 0777) == 0)
        return 0;
    const int error = errno;
    unlink(image.c_str());
    unlink(conf.c_str());
    if (made)
        rmdir(folder.c_str());
    return refuse(error);
}

std::unique_ptr<Card> Card::open(const char* folder)
{
    const std::string real = real_path(folder);
    const std::string files = real + "/files";
    struct stat64 status = {};
    if (real.empty() || lstat64(files.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        access((real + "/card.conf").c_str(), F_OK) != 0 || access((real + "/card.img").c_str(), F_OK) != 0) {
        errno = ENODEV;
        return nullptr;
    }
    const std::optional<Geometry> geometry = read_geometry(real + "/card.conf");
    if (!geometry)
        return nullptr;
    std::unique_ptr<Card> card(new Card(real, *geometry));
    if (card->m_image.get() < 0)
        return nullptr;
    if (flock(card->m_image.get(), LOCK_EX | LOCK_NB) != 0) { // another process has it
        errno = EBUSY;
        return nullptr;
    }
    card->read_table();
    return card;
}

Card::Card(const std::string& folder, Geometry geometry)
    : m_image_path(folder + "/card.img"), m_mount_point(folder + "/files"),
      m_image(open64(m_image_path.c_str(), O_RDONLY | O_CLOEXEC)), m_geometry(geometry)
{
}

Place Card::locate(const char* path) const
{
    if (!path)
        return Place::elsewhere;
    if (const char* device = below(device_folder, path)) {
        if (*device == '\0')
            return Place::device_folder;
        if (strcmp(device, "sda1") == 0 && !m_partition.empty())
            return Place::partition;
        return strcmp(device, "sda") == 0 ? Place::disk : Place::no_device;
    }
    const char* file = below(m_mount_point, path);
    if (!file)
        file = below(m_mounted_as, path);
    if (!file)
        return Place::elsewhere;
    return *file == '\0' ? Place::mount_point : Place::file;
}

bool Card::is_mount_point(const char* directory) const
{
    return locate(directory) == Place::mount_point || (directory && real_path(directory) == m_mount_point);
}

std::string Card::device_names() const
{
    return m_partition.empty() ? "sda" : "sda sda1";
}

Window Card::window(Place device) const
{
    return device == Place::partition ? m_partition : Window{0, file_bytes(m_image.get())};
}

unsigned Card::cylinders() const
{
    const std::uint64_t cylinder_bytes =
        static_cast<std::uint64_t>(m_geometry.heads) * m_geometry.sectors * sector_bytes;
    return static_cast<unsigned>(std::min<std::uint64_t>(file_bytes(m_image.get()) / cylinder_bytes, 65535));
}

void Card::read_table()
{
    std::uint8_t table[sector_bytes];
    m_partition = {};
    if (read_sector(m_image.get(), 0, table))
        m_partition = first_partition(table, file_bytes(m_image.get()) / sector_bytes);
}

int Card::before_write(std::uint64_t start, std::uint64_t length)
{
    const bool boot_record = start < m_partition.start + sector_bytes && start + length > m_partition.start;
    const int error = !m_partition.empty() && boot_record ? empty_folder(m_mount_point) : 0;
    return error == 0 ? 0 : refuse(error);
}

int Card::mount(Place device, const char* directory, const char* type)
{
    if (!directory || real_path(directory).empty())
        return refuse(ENOENT);
    if (!type || strcmp(type, "vfat") != 0)
        return refuse(ENODEV);
    if (!is_mount_point(directory))
        return refuse(EINVAL);
    if (m_volume)
        return refuse(EBUSY);
    std::uint8_t boot_record[sector_bytes];
    const Window where = window(device);
    if (where.length < sector_bytes || !read_sector(m_image.get(), where.start, boot_record))
        return refuse(EINVAL);
    std::string mounted_as(directory);
    while (mounted_as.size() > 1 && mounted_as.back() == '/')
        mounted_as.pop_back();
    m_volume = fat32_volume(boot_record, where.length);
    if (!m_volume)
        return refuse(EINVAL);
    m_mounted_as.swap(mounted_as);
    m_free_clusters.reset();
    return 0;
}

std::uint64_t Card::room(std::uint64_t size, std::uint64_t offset, std::uint64_t count)
{
    if (offset >= fat32_file_max) {
        errno = EFBIG;
        return 0;
    }
    count = std::min(count, fat32_file_max - offset);
    const std::int64_t held = static_cast<std::int64_t>(m_volume->clusters_for(size));
    const std::int64_t wanted = static_cast<std::int64_t>(m_volume->clusters_for(offset + count));
    if (wanted <= held || wanted - held <= free_clusters())
        return count;
    measure(); // before refusing, see what was freed past these calls
    const std::uint64_t end = static_cast<std::uint64_t>(held + free_clusters()) * m_volume->cluster_bytes;
    if (end <= offset) {
        errno = ENOSPC;
        return 0;
    }
    return std::min(count, end - offset);
}

std::int64_t Card::free_clusters()
{
    if (!m_free_clusters)
        measure();
    return *m_free_clusters;
}

void Card::measure()
{
    m_free_clusters = static_cast<std::int64_t>(m_volume->free_clusters(m_mount_point));
}

struct statfs Card::sizes(long long free_bytes)
{
    if (free_bytes >= 0)
        return m_volume->sizes(static_cast<std::uint64_t>(free_bytes) / m_volume->cluster_bytes);
    return m_volume->sizes(static_cast<std::uint64_t>(std::max<std::int64_t>(free_clusters(), 0)));
}

void Card::resized(std::uint64_t old_size, std::uint64_t new_size)
{
    if (!m_free_clusters)
        return;
    *m_free_clusters += static_cast<std::int64_t>(m_volume->clusters_for(old_size));
    *m_free_clusters -= static_cast<std::int64_t>(m_volume->clusters_for(new_size));
}

} // namespace hostcard
