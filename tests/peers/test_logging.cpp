// The log as an operator finds it: statements are written through the library in a child process, and
// the files, the standard streams and the calls of the compression script are read back.
#include <sys/wait.h>

#include <cerrno>
#include <regex>

#include "log.h"
#include "sandbox_fixture.h"

namespace {

using namespace fixture;

const fs::path kLogs = "/var/log/network";
const fs::path kSettings = "/tmp/log_config";
const fs::path kRollouts = "/run/network/rollouts";
const fs::path kReference = "/run/network/log_compress.sh";
const fs::path kScratch = "/run/network/scratch";
const std::string kLineStart = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \d+ )";
const std::string kPlace = R"(\[[^\]]*test_logging\.cpp:\d+\] .*speak\(.*\) >>> )";
const std::string kBuiltInText = "bare\n" + kLineStart + "ERROR " + kPlace + "failed -3\n" + kLineStart +
                                 "DEBUG " + kPlace + "Exit -1015\n";

std::string names_in(const fs::path& directory) {
    std::string names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names += entry.path().filename().string() + " ";
    }
    return names;
}

/// A configuration file that differs from the built-in one in format, file and limit.
std::string settings_for(const fs::path& log, const std::string& limit = "300") {
    return "## written by hand\n* GLOBAL:\n  FORMAT = \"conf %level %msg\"\n  FILENAME = \"" + log.string() +
           "\"\n  TO_STANDARD_OUTPUT = false\n  MAX_LOG_FILE_SIZE = " + limit +
           "\n  LOG_FLUSH_THRESHOLD = 1\n";
}

void speak() {
    NM_LOG(Info) << "bare";
    NM_LOG(Error) << "failed " << -3;
    (void)NM_EXIT(-1015);
}

void initialize_and_speak(const char* category) {
    INITIALIZE_LOG(category);
    speak();
}

/// Runs in a process of its own, because loggers are of a whole process. What that prints must be `output`,
/// its status 0, and its directory stay empty.
void in_child(const std::function<void()>& body, const std::string& output = "") {
    fs::remove_all(kScratch);
    fs::create_directories(kScratch / "cwd");
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        (void)!freopen((kScratch / "output").c_str(), "w", stdout);
        dup2(STDOUT_FILENO, STDERR_FILENO);
        fs::current_path(kScratch / "cwd");
        [&]() noexcept { body(); }();  // an exception must not lead back into the test program
        fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(slurp(kScratch / "output") + names_in(kScratch / "cwd"), output);
    EXPECT_EQ(status, 0);
}

void expect_text(const fs::path& log, const std::string& pattern) {
    const std::string text = slurp(log);
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << log << ":\n" << text;
}

class Logging : public testing::Test {
protected:
    static void SetUpTestSuite() { fs::copy_file("/usr/sbin/log_compress.sh", kReference); }
    void SetUp() override {
        run("cd /run/network && rm -rf /var/log/network /tmp/log_config rollouts .boot_fin .reboot "
            ".poweroff");
        fs::create_directories(kLogs);
        // Journal of one line per call: argument count, path, size of the file at that moment.
        put("/usr/sbin/log_compress.sh",
            "#!/bin/sh\necho \"$#|$1|$(wc -c <\"$1\")\" >>" + kRollouts.string() + "\n");
        fs::permissions("/usr/sbin/log_compress.sh", fs::perms(0755));
    }
    void TearDown() override { SetUp(); }
};

TEST_F(Logging, EveryCategoryHasItsFileFormatLimitAndSettings) {
    const struct {
        const char* category;
        std::string markers, settings, log;
        std::size_t limit;
    } cases[] = {
        {"MAIN", ".reboot .poweroff", "bootup.conf", "bootup.log", 0},
        {"MAIN", ".boot_fin .reboot", "shutdown.conf", "shutdown.log", 0},
        {"MAIN", ".boot_fin .poweroff", "shutdown.conf", "shutdown.log", 0},
        {"MAIN", ".boot_fin", "main.conf", "main.log", 524288},
        {"API", ".boot_fin .reboot", "api.conf", "api.log", 102400},
        {"VPPPOE", ".boot_fin", "vpppoe.conf", "default.log", 102400},
        {"DNSMASQMGR", ".boot_fin", "dnsmasq_mgr.conf", "dnsmasq_mgr.log", 102400},
        {"MAPED", ".reboot", "maped.conf", "maped.log", 102400},
        {"a-wrapper-b", ".reboot", "default.conf", "a-wrapper-b.log", 102400},
        {"MAINS", ".reboot", "default.conf", "default.log", 102400},
        {nullptr, ".boot_fin", "default.conf", "default.log", 102400},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.log + " " + row.markers);
        SetUp();
        run("cd /run/network && touch " + row.markers);
        in_child([&] { initialize_and_speak(row.category); });
        expect_text(kLogs / row.log, kBuiltInText);
        EXPECT_EQ(names_in(kLogs), row.log + " ");

        const std::size_t almost = (row.limit != 0 ? row.limit : 2097152) - 5;
        put(kLogs / row.log, std::string(almost, 'x'));
        in_child([&] { INITIALIZE_LOG(row.category), NM_LOG(Info) << "123", NM_LOG(Info) << ""; });
        EXPECT_EQ(fs::file_size(kLogs / row.log), row.limit == 0 ? almost + 5 : 0);
        const std::string rollout = "1|" + (kLogs / row.log).string() + "|" + std::to_string(row.limit);
        EXPECT_EQ(slurp(kRollouts), row.limit == 0 ? "" : rollout + "\n");

        put(kSettings / row.settings, settings_for(kLogs / "by_conf.log"));
        in_child([&] { initialize_and_speak(row.category); });
        expect_text(kLogs / (row.log == "a-wrapper-b.log" ? row.log : "by_conf.log"),
                    "conf INFO bare\nconf ERROR failed -3\nconf DEBUG Exit -1015\n");
    }
}

TEST_F(Logging, SettingsAreBelievedOnlyIfRootAloneCanHaveWrittenThem) {
    const fs::path conf = kSettings / "api.conf";
    const std::pair<std::string, bool> cases[] = {
        {"chmod 644 api.conf", true},
        {"chown daemon api.conf", false},
        {"chgrp daemon api.conf; chmod 664 api.conf", false},
        {"chmod 646 api.conf", false},
        {"mv api.conf theirs; ln -s theirs api.conf", false},
        {"rm api.conf; mkfifo api.conf", false},
        {"chown daemon .", false},
        {"chmod g+w .", false},
        {"chmod 1777 .", false},
        {"cd ..; mv log_config theirs; ln -s theirs log_config", false}};
    for (const auto& [change, believed] : cases) {
        SCOPED_TRACE(change);
        SetUp();
        run("rm -rf /tmp/theirs");
        put(conf, settings_for(kLogs / "by_conf.log"));
        run("cd " + kSettings.string() + " && chmod 755 . && { " + change + "; }");
        in_child([] { initialize_and_speak("API"); });
        EXPECT_EQ(names_in(kLogs), believed ? "by_conf.log " : "api.log ");
    }
}

TEST_F(Logging, LaterCallsMoveTheLoggerForgetTheFormerSettingsAndLeakNothing) {
    put(kSettings / "bootup.conf", settings_for(kLogs / "boot.log") + "* INFO:\n ENABLED = false\n");
    in_child([] {
        initialize_and_speak("MAIN");
        const auto descriptors = open_descriptors();
        put("/run/network/.boot_fin", "");
        for (int i = 0; i < 1000; ++i) {
            INITIALIZE_LOG(i % 2 == 0 ? "API" : "MAIN");
        }
        speak();
        _exit(open_descriptors() != descriptors);
    });
    expect_text(kLogs / "boot.log", "conf ERROR failed -3\nconf DEBUG Exit -1015\n");
    expect_text(kLogs / "main.log", kBuiltInText);
}

/// A call that finds all as it was leaves the log alone; whatever has changed counts from the next call on.
TEST_F(Logging, CallsOfOneCategorySeeWhatHasChanged) {
    in_child([] {
        const auto say = [](const char* text) { INITIALIZE_LOG("API"), NM_LOG(Info) << text; };
        put("/run/network/.boot_fin", "");
        say("first");
        fs::rename(kLogs / "api.log", kLogs / "moved.log");
        say("second");
        put(kSettings / "api.conf", settings_for(kLogs / "one.log"));
        say("third");
        put(kSettings / "api.conf", settings_for(kLogs / "two.log"));
        fs::create_directory(kLogs / "two.log");
        say("lost");
        fs::remove(kLogs / "two.log");
        say("fourth");
        fs::remove(kSettings / "api.conf");
        setenv("NALOG", "", 1);
        say("fifth");
        unsetenv("NALOG");
        say("sixth");
    });
    const std::pair<std::string, std::string> logs[] = {{"moved", "first\n"},
                                                        {"api", "second\nsixth\n"},
                                                        {"one", "conf INFO third\n"},
                                                        {"two", "conf INFO fourth\n"},
                                                        {"default", "fifth\n"}};
    for (const auto& [log, text] : logs) {
        EXPECT_EQ(slurp(kLogs / (log + ".log")), text) << log;
    }
}

TEST_F(Logging, RolloutHandlerTakesAnyPath) {
    const fs::path hostile = kLogs / "a 'b' \"$(touch pwned)\";`touch pwned`.log";
    put(hostile, "12345");
    fs::create_symlink(hostile, kLogs / "link");
    in_child([&] {
        for (const fs::path& path : {hostile, kLogs / "link", kLogs, kLogs / "absent"}) {
            rolloutHandler(path.c_str(), 0);
        }
    });
    EXPECT_EQ(slurp(kRollouts), "1|" + hostile.string() + "|5\n1|" + hostile.string() + "|5\n");
}

TEST_F(Logging, RolledFileIsSharedWithOthersAndKeptFromChildren) {
    const std::string message = "%msg %datetime %%level 'a' $(b)\n" + SEPARATE_LINE;
    put(kSettings / "api.conf", settings_for(kLogs / "api.log"));
    in_child([&] {
        INITIALIZE_LOG("API");
        NM_LOG(Info) << std::string(400, 'x');
        NM_LOG(Info) << nm::LogLines{message};
        (void)!system("echo theirs >>/var/log/network/api.log; ls -l /proc/self/fd | grep /var/log");
        NM_LOG(Info) << "mine";
    });
    EXPECT_EQ(slurp(kLogs / "api.log"), "conf INFO " + message + "\ntheirs\nconf INFO mine\n");
}

TEST_F(Logging, ProcessesThatFillOneFileLoseNoLineAndPrintNothing) {
    constexpr int kWriters = 4;
    constexpr int kLines = 150;
    fs::copy_file(kReference, "/usr/sbin/log_compress.sh", fs::copy_options::overwrite_existing);
    put(kSettings / "api.conf", settings_for(kLogs / "api.log", "20000"));
    put(kLogs / "api.log", "");
    fs::permissions(kLogs / "api.log", fs::perms(0600));
    in_child([&] {
        for (int writer = 0; writer < kWriters; ++writer) {
            if (fork() != 0) {
                continue;
            }
            INITIALIZE_LOG("API");
            for (int line = 0; line < kLines; ++line) {
                NM_LOG(Error) << std::string(100, 'x') << " writer " << writer << " line " << line;
                usleep(300);  // so that some lines come while a full file is compressed
            }
            _exit(0);
        }
        while (wait(nullptr) > 0) {
        }
    });
    run("test $(zcat -f /var/log/network/api.log* | grep -c ' writer ') -ge " +
        std::to_string(kWriters * kLines));
    run("test $(zcat -f /var/log/network/api.log* | sort -u | wc -l) = " + std::to_string(kWriters * kLines));
    run("ls /var/log/network/api.log.*.gz");
    run("test -z \"$(find /var/log/network -type f -perm /077)\"");
}

TEST_F(Logging, RemovedFileComesBackWithTheNextLine) {
    in_child([] {
        INITIALIZE_LOG("API");
        fs::remove(kLogs / "api.log");
        speak();
    });
    expect_text(kLogs / "api.log", kBuiltInText);
}

TEST_F(Logging, ValuesAddNoLineAndMoveNoCursor) {
    in_child([] {
        const std::string value("a\n%msg ERROR forged\r\x1b[2J\x7f\0\xc3\xa9\\n", 30);
        char buffer[] = "b\tc";
        INITIALIZE_LOG("API");
        NM_LOG(Info) << "own\n"
                     << value << '|' << std::string_view(value).substr(0, 2) << '|' << buffer << '|'
                     << static_cast<const char*>("\v") << static_cast<const char*>(nullptr) << '|'
                     << nm::LogLines{"d\ne\x1b"};
    });
    EXPECT_EQ(slurp(kLogs / "api.log"),
              "own\na\\n%msg ERROR forged\\r\\x1b[2J\\x7f\\x00\xc3\xa9\\n|a\\n|b\\tc|\\v|d\ne\\x1b\n");
}

TEST_F(Logging, FullDiskAndMissingDirectoryHarmNobody) {
    put(kSettings / "test.conf", settings_for("/dev/full"));
    fs::remove_all(kLogs);
    put(kLogs, "in the way");
    in_child([] {
        initialize_and_speak("API");
        INITIALIZE_LOG("TEST");
        errno = ENOTTY;
        NM_LOG(Error) << "lost";
        const bool keeps_errno = errno == ENOTTY;
        fs::remove_all(kLogs);
        initialize_and_speak("API");
        _exit(keeps_errno ? 0 : 1);
    });
    expect_text(kLogs / "api.log", kBuiltInText);  // the logging library makes the directory
}

}  // namespace
