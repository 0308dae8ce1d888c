// Locks and what stands on them: lock files that stay or go, whole files, a full disk, listings.
#include <net/if.h>
#include <sys/stat.h>

#include "utils/file_io.h"
#include "utils_support.h"

using namespace fixture;

namespace {

std::string lock_file(const std::string& base) {
    return "/var/lock/network/" + base + ".lck";
}

TEST(UtilsLocks, BaseNameIsTheLockAndItsFileGoesOnlyOnDemand) {
    const std::pair<std::string, std::string> cases[] = {
        {"/etc/one/swlock1", lock_file("swlock1")},
        {std::string(60, 'x'), "/var/lock/network/" + std::string(45, 'x')}};
    for (const auto& [path, file] : cases) {
        for (const bool remove : {false, true}) {
            const int exclusive = lock_ex(path.c_str());
            EXPECT_EQ(unlock_ex(exclusive, path.c_str(), remove), 0);
            EXPECT_EQ(fcntl(exclusive, F_GETFD), -1);
            EXPECT_EQ(fs::exists(file), !remove) << file;
            EXPECT_EQ(unlock_sh(lock_sh(path.c_str()), remove), 0);
            EXPECT_EQ(fs::exists(file), !remove) << file;
        }
    }
}

TEST(UtilsLocks, LinkInTheLockFilesPlaceIsNotFollowed) {
    const File victim("/tmp/victim", "precious");
    const std::string path = "/etc/one/swlock2";
    fs::create_symlink(victim.path, lock_file("swlock2"));
    EXPECT_EQ(readValue(path, true), "");
    fs::remove(lock_file("swlock2"));
    EXPECT_EQ(slurp(victim.path), "precious");
}

TEST(UtilsLocks, IndexFormLocksTheName) {
    const int lo = static_cast<int>(if_nametoindex("lo"));
    const int fd = lock_ex(lo);
    EXPECT_EQ(unlock_ex(fd, 999999), NM_ERR_NO_IFACE);
    EXPECT_FALSE(is_lock_free("lo")) << "an index without a name must not release";
    EXPECT_EQ(unlock_ex(fd, lo), 0);
    EXPECT_TRUE(is_lock_free("lo"));
    EXPECT_EQ(lock_ex(999999), NM_ERR_NO_IFACE);
}

TEST(UtilsFiles, ReadersDeleteTheLockFileAndWritersLeaveIt) {
    const Scratch dir;
    const std::string path = dir / "swfile1";
    for (const std::string& text : {std::string(), std::string("nul\0in", 6), std::string(3000000, 'z')}) {
        EXPECT_EQ(writeValue(path, text, true), 0);
        EXPECT_TRUE(fs::exists(lock_file("swfile1")));
        EXPECT_TRUE(readValue(path, false) == text) << text.size();
        EXPECT_TRUE(fs::exists(lock_file("swfile1")));
        EXPECT_TRUE(readValue(path, true) == text) << text.size();
        EXPECT_FALSE(fs::exists(lock_file("swfile1")));
    }
    EXPECT_EQ(readValue(dir / ".", true), "") << "a directory opens but does not read";
}

TEST(UtilsFiles, FailuresShowOnlyWithoutALock) {
    const Scratch dir;
    run("mount -m -t tmpfs -o size=64k none " + (dir / "small"));
    const std::string full = dir / "small/swfile3";
    const std::string text(100000, 'x');
    const std::pair<std::string, int> cases[] = {
        {dir / "none/file", NM_ERR_OPEN}, {dir / ".", NM_ERR_OPEN}, {full, NM_ERR_WRITE}};
    for (const auto& [path, code] : cases) {
        EXPECT_EQ(writeValue(path, text, false), code) << path;
        EXPECT_EQ(writeValue(path, text, true), 0) << "the unlock's result counts: " << path;
    }
    EXPECT_EQ(nm::sync_to_disk(full, text.size()), NM_ERR_WRITE);
    EXPECT_EQ(writeValue(full, "fits", true), 0);
    EXPECT_EQ(nm::sync_to_disk(full, 4), 0);
    run("umount " + (dir / "small"));
}

TEST(UtilsFiles, CopyPassesTheContentAndHidesItsFailures) {
    const Scratch dir;
    const std::string text(100000, 'c');
    put(dir / "swfrom", text);
    put(dir / "swto", std::string(200000, 'o'));
    EXPECT_EQ(copy_file(dir / "swfrom", dir / "swto"), 0);
    EXPECT_TRUE(slurp(dir / "swto") == text);
    EXPECT_TRUE(fs::exists(lock_file("swfrom")) && fs::exists(lock_file("swto")));
    EXPECT_EQ(copy_file(dir / "swnone", dir / "swto"), 0);
    EXPECT_TRUE(slurp(dir / "swto") == text) << "a missing source must not cost the old copy";
    EXPECT_EQ(copy_file(dir / "swfrom", "/dev/full"), 0);
    EXPECT_EQ(fs::status("/dev/full").permissions(), fs::perms(0666));
}

TEST(UtilsFiles, CopyIsOpenToNoMoreUsersThanItsSource) {
    const Scratch dir;
    // Mode and group of the source, of the copy before (none for 0) and after. Group 4 is another than
    // root's.
    const std::tuple<unsigned, unsigned, unsigned> cases[] = {
        {0600, 0, 0600},    {0640, 0, 0640},    {0644, 0, 0644},   {0600, 0644, 0600},
        {0640, 0666, 0640}, {0644, 0600, 0600}, {0640, 0604, 0600}};
    for (const auto& [source, before, after] : cases) {
        put(dir / "swfrom", "PASSWORD");
        run("chgrp 4 " + (dir / "swfrom"));
        fs::permissions(dir / "swfrom", fs::perms(source));
        fs::remove(dir / "swto");
        if (before != 0) {
            put(dir / "swto", "old");
            fs::permissions(dir / "swto", fs::perms(before));
        }
        EXPECT_EQ(copy_file(dir / "swfrom", dir / "swto"), 0);
        EXPECT_EQ(slurp(dir / "swto"), "PASSWORD");
        struct stat copy {};
        EXPECT_EQ(stat((dir / "swto").c_str(), &copy), 0);
        EXPECT_EQ(copy.st_mode & ACCESSPERMS, after) << std::oct << source << " " << before;
        EXPECT_EQ(copy.st_gid, 4U);
    }
}

TEST(UtilsFiles, SharedLockIsReleasedByItsName) {
    for (const bool remove : {false, true}) {
        const LogTail log;
        EXPECT_EQ(unlock_sh(lock_sh("/etc/one/swlock3"), remove), 0);
        EXPECT_TRUE(log.has("UNLOCKed: swlock3, pid: ")) << remove;
    }
}

}  // namespace
