#include <cstdio>
#include <fstream>
#include <mntent.h>

#include "hostcard.h"
#include "ifs_legacy.h"
#include "scripts/witness_host/clock.h"
#include "scripts/witness_host/report.h"
#include "scripts/witness_host/run.h"

void Run::mount()
{
    if (m_mounted && m_random.chance(50)) // else a second mount
        umount();
    const std::string dir = m_random.chance(4) ? m_folder : m_files + (m_random.chance(10) ? "/" : "");
    const int result = Ifsi_mount(dir.c_str());
    m_mounted = m_mounted || result == 0;
    unsigned long main_number, sub_number;
    Ifsi_get_file_number(&main_number,
                         &sub_number); // waits for the catalogue, whose messages come in between
    say("mount: %d", result);
    if (m_random.chance(30))
        say("loading: %d", Ifsi_loading_rebuilding_index_file_flag());
}

void Run::umount()
{
    const bool tidy = m_random.chance(m_hoards ? 5 : 50);
    for (Handle& handle : m_handles) {
        if (handle.open && tidy)
            say("close %d: %d", handle.fd, Ifsi_close(handle.fd, nullptr));
        handle.open = handle.open && !tidy;
    }
    for (const int search : m_searches)
        if (tidy)
            Ifsi_find_close(search);
    if (tidy)
        m_searches.clear();
    const int result = Ifsi_umount();
    m_mounted = m_mounted && result != 0;
    say("umount: %d", result);
}

void Run::format()
{
    if (m_mounted && m_random.chance(30))
        umount();
    say("format: %d", Ifsi_format());
}

void Run::is_full()
{
    say("is full: %d", Ifsi_is_full());
}

void Run::system_info()
{
    _ifs_system_info_ info{9, 9, 9, 9, 9, 9, 9};
    const int result = Ifsi_get_system_info(&info);
    say("info: %d, %d %d %d %d %llu %llu %llu", result, info.have_card, info.formatted, info.fs_version,
        info.card_fs_version, info.dev_size, info.fs_total_size, info.fs_free_size);
    char device[13] = "untouched...";
    int count = 9;
    say("probe: %d", fs_probe(device, &count));
    say("probed: %s %d, %d %d", device, count, fs_getgrp(), fs_earliest());
}

void Run::init()
{
    static bool running = false;
    if (!m_features.worker || (running && m_random.chance(90)))
        return;
    running = true;
    say("init: %d", Ifsi_init());
    worker_started();
}

void Run::ticks()
{
    const bool many = m_entries.size() > 120;
    if (many && m_random.chance(50))
        gFs_max_file_number = 1;
    unsigned count = 1 + m_random.below(many ? 150 : 6);
    for (; count > 0; count--)
        tick();
}

void Run::limits()
{
    if (m_random.chance(20))
        say("set overlap: %d", Ifsi_set_overlap(m_random.chance(70)));
    const unsigned present = static_cast<unsigned>(m_entries.size());
    const unsigned below = m_random.below(40);
    gFs_max_file_number = m_random.one_of({0u, 1u, 20u, 21u, 22u, present, present, present + 1, present + 2,
                                           present > below ? present - below : 0, 0x7FFFFFFFu});
    say("max: %u", gFs_max_file_number);
}

void Run::free_space()
{
    constexpr long long cluster = 65536, mebibyte = 1 << 20;
    long long bytes = m_random.one_of({100LL, 150LL, 150LL, 400LL, 400LL, 600LL, 0LL, 5000LL}) * mebibyte +
                      m_random.between(-1, 1) * cluster;
    if (m_random.chance(40))
        bytes = -1; // the truth
    hostcard_set_free(bytes);
    say("free: %lld", bytes);
}

void Run::settings()
{
    switch (m_random.below(4)) {
    case 0:
        m_level = m_random.one_of({0xFFFFFFFFu, 0xFFFFFFFFu, 7u, 1u, 0u});
        Ifsi_set_debug_level(m_level);
        break;
    case 1:
        Ifsi_set_scan_rec_file_flag(m_random.between(0, 2));
        break;
    case 2:
        if (m_random.chance(40))
            Ifsi_set_demo_flag();
        break;
    default:
        gIfs_file_type = 1;
        m_random.chance(50) ? open_by_time() : create();
        gIfs_file_type = 0;
    }
}

void Run::pull_card()
{
    if (!m_features.pulled)
        return;
    hostcard_eject();
    hostcard_scale_sleep(0.5);
    m_counts.assign(m_counts.size(), 0);
    const unsigned meanwhile = m_random.below(3);
    for (unsigned i = 0; i < meanwhile; i++) {
        look();
        m_random.chance(50) ? read() : is_full();
    }
    if (m_random.chance(60))
        umount();
    insert();
}

void Run::list_devices()
{
    const char* const names = m_random.one_of({"sda1 sdb sda", "sd sdab sda1", "", "sdA sdz sda", "sda sdb"});
    hostcard_set_listing(names);
    m_random.chance(50) ? mount() : system_info();
    hostcard_set_listing(nullptr);
}

void Run::meddle()
{
    m_population->meddle();
    if (m_random.chance(60))
        mount();
}

void Run::mount_table()
{
    const std::string path = m_folder + "/scratch/mounts";
    std::ofstream(path)
        << "/dev/hd/sda1 /mnt/card vfat rw 0 0\nproc /proc proc rw 0 0\n/dev/hd/sdb1 / ext4 rw 0 0\n";
    const char* const name = m_random.one_of(
        {"/mnt/card", "/mnt/card/", "/dev/hd/sda1", "/mnt/card//", "/", "//", "/mnt", "/proc/", ""});
    const char* const table = m_random.chance(90) ? path.c_str() : "/nowhere";
    const mntent* const entry = find_mount_point(name, table);
    say("mount point %s: %s %s", name, entry ? entry->mnt_fsname : "none", entry ? entry->mnt_dir : "");
}
