/** Files that a command writes: whole or not at all. */
#ifndef TOOLS_OUTPUT_FILE_H
#define TOOLS_OUTPUT_FILE_H

#include <cstddef>
#include <memory>
#include <string>

/**
 * A file under a name of its own beside the wanted one, until keep() gives it that name.
 * Whatever is there is removed when the object goes without a keep().
 */
class PartFile
{
public:
    /** Creates nothing. Throws Failure (refused) when the file exists. */
    explicit PartFile(const std::string& path);
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    /** The name to write to. */
    const std::string& part_path() const { return m_part_path; }

    /** Rename it. Throws Failure (failed). */
    void keep();

private:
    std::string m_path;
    std::string m_part_path;
};

/** Where a command's frames go: a new file, or a pipe or device that exists. */
class OutputFile
{
public:
    /**
     * @param path             "-" for standard output
     * @param standard_output  descriptor of that
     * Throws Failure: refused (a file of that name exists), usage (a terminal), failed.
     */
    OutputFile(const std::string& path, int standard_output);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /** As write_all(). */
    [[nodiscard]] bool write(const void* data, size_t size);

    /** Keep the file. Without it a new one is removed. Throws Failure (failed). */
    void finish();

private:
    std::string m_name;
    std::unique_ptr<PartFile> m_part;
    int m_own_fd = -1;
    int m_fd;
};

#endif
