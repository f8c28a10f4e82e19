/** The card that a command works on. */
#ifndef TOOLS_CARD_H
#define TOOLS_CARD_H

#include <string>

/**
 * A card, inserted for as long as the object lives, for this process alone. One at a time.
 * The destructor unmounts it: searches, playbacks and recordings must be closed by then.
 */
class Card
{
public:
    /** Insert the card. Throws Failure: no_card. */
    explicit Card(const std::string& path);
    ~Card();
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    /** Try to mount it, and wait until its catalogue is built. @return whether it is mounted */
    bool try_mount();

    /** As try_mount(). Throws Failure: not_formatted. */
    void mount();

    /**
     * Mount its files without the library, which would mend the card and delete from it on the way.
     *
     * @return 0, or as mount(2): ENOENT (no first partition), EINVAL (no FAT32 file system on it), ...
     */
    int mount_files(bool read_only);

    /** Throws Failure (failed) where its files cannot be written to, which are left as they are. */
    void check_writable() const;

    /** As above for a format, which writes to its sectors, too. */
    void check_erasable() const;

    /** Where its files lie once it is mounted. */
    std::string folder() const;

private:
    std::string m_path;
    bool m_mounted = false;
    bool m_files_mounted = false;
};

/**
 * Throws Failure (refused) where a file would lie in a card's folder: a camera that found it there would
 * count it, or delete it.
 */
void check_not_on_card(const std::string& card_path, const std::string& file);

#endif
