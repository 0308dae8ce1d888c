// Commands, units, the process table, and locks between processes: results, sizes, hostile words, waiting.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>

#include "kernel/utils/shell_text.h"
#include "test_utils_support.h"

using namespace fixture;

namespace {

constexpr std::size_t kFiveMegabytes = 5 * 1024 * 1024;

// A script of exactly `size` characters that ends with `last`.
std::string script_of(std::size_t size, const std::string& last) {
    return "seen=1\n#" + std::string(size - last.size() - 9, 'x') + "\n" + last;
}

TEST(UtilsProcess, ExitCodesAndSignalsOfScriptsOfAnySize) {
    // The kernel takes 131071 characters in one argument.
    for (const std::size_t size : {100UL, 131071UL, 131072UL, kFiveMegabytes}) {
        EXPECT_EQ(system_cmd(script_of(size, "exit 0").c_str()), 0) << size;
        EXPECT_EQ(system_cmd(script_of(size, "exit 25$((seen + 4))").c_str()), 255) << size;
        EXPECT_EQ(system_cmd(script_of(size, "kill -9 $$").c_str()), NM_ERR_SERVICE) << size;
        EXPECT_EQ(exec(script_of(size, "printf 'a\\000%s\\n' $seen; exit 3").c_str()),
                  std::string("a\0001\n", 4))
            << size;
    }
    EXPECT_EQ(system_cmd(nullptr), NM_ERR_NULL_ARG);
    EXPECT_THROW(exec(nullptr), std::runtime_error);
    EXPECT_EQ(exec("head -c 1048576 /dev/zero | tr '\\000' q"), std::string(1048576, 'q'));
}

TEST(UtilsProcess, ChildrenInheritNothing) {
    const nm::LockGuard held("swfile5");
    const std::string inherited = exec(script_of(kFiveMegabytes, "ls -l /proc/self/fd; :").c_str());
    EXPECT_NE(inherited.find("pipe:"), std::string::npos);
    EXPECT_EQ(inherited.find("memfd"), std::string::npos) << inherited;
    EXPECT_EQ(inherited.find(".lck"), std::string::npos) << inherited;
}

TEST(UtilsProcess, CommandLinesAreSplitAtBlanks) {
    const std::pair<std::string, Texts> cases[] = {
        {"  /sbin/ip  link   show ", {"/sbin/ip", "link", "show"}},
        {"a \"b c\"", {"a", "\"b", "c\""}},
        {"one\ttwo", {"one\ttwo"}},
        {std::string(2000, 'w'), {std::string(1023, 'w')}},
        {vector_into_string(Texts(70, "w"), "", " "), Texts(63, "w")},
        {"    ", {}}};
    for (const auto& [cmd, words] : cases) {
        char** argv = nullptr;
        const int count = cmd2argv(cmd.c_str(), &argv);
        ASSERT_EQ(count, static_cast<int>(words.size())) << cmd;
        EXPECT_EQ(Texts(argv, argv + count), words);
        ASSERT_NE(argv[0], nullptr);
        EXPECT_EQ(argv[std::max(count, 1)], nullptr);
        free(argv[0]);
        free(argv);
    }
    EXPECT_EQ(cmd2argv("a", nullptr), -1);
}

TEST(UtilsShellText, HostileTextIsOneInertWord) {
    EXPECT_EQ(nm::shell_word("swdev1.100:a/b@c%d+e=f,g-h_"), "swdev1.100:a/b@c%d+e=f,g-h_");
    for (const char* text :
         {"",  "a b",  "$(echo x)", "`echo x`", "a;b", "it's", "''",  "\\", "a\tb",     "*",
          "~", "a\"b", "!x",        "\r",       "#x",  "&",    "a|b", ">x", "\xc3\xa4", "'$(echo x)'"}) {
        EXPECT_FALSE(nm::is_plain(text)) << text;
        const std::string word = nm::shell_word(text).value_or("refused");
        EXPECT_EQ(exec(("set -- " + word + "; printf '%s:%s' $# \"$1\"").c_str()), std::string("1:") + text);
        // A comment is all of a rule that keeps any text; saved, its quotes and backslashes are escaped.
        const std::string rule =
            "-A OUTPUT -m comment --comment " + nm::restore_word(text).value_or("refused");
        EXPECT_EQ(
            system_cmd(("/bin/cat <<- EOF | iptables-restore\n*raw\n" + rule + "\nCOMMIT\nEOF").c_str()), 0);
        const std::string kept = exec(
            R"x(iptables-save -t raw | sed -n 's/.*--comment //; T; s/^"\(.*\)"$/\1/; s/\\\(.\)/\1/g; p')x");
        EXPECT_EQ(kept, text + std::string("\n"));
    }
    EXPECT_FALSE(nm::shell_word("a\nb") || nm::restore_word("a\nb"));
    EXPECT_FALSE(nm::shell_word(std::string("a\0b", 3)));
}

// A sleeping process under a command line of its own, ended with the object.
struct Sleeper {
    explicit Sleeper(std::vector<const char*> argv) {
        argv.push_back(nullptr);
        char** words = const_cast<char**>(argv.data());
        EXPECT_EQ(posix_spawn(&pid, "/bin/sleep", nullptr, nullptr, words, environ), 0);
        const std::string cmdline = "/proc/" + std::to_string(pid) + "/cmdline";
        for (int i = 0; i < 500 && slurp(cmdline).empty(); ++i) {
            usleep(1000);
        }
    }
    ~Sleeper() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    pid_t pid = -1;
};

TEST(UtilsProcLookup, PidFilesTellHowFarTheCheckGot) {
    const ScratchDir dir;
    const Sleeper sleeper({"sleep", "600", "1s", "2s"});
    const Sleeper ended({"sleep", "0.1"});
    siginfo_t info;
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(ended.pid), &info, WEXITED | WNOWAIT), 0);
    const std::string pid = std::to_string(sleeper.pid);
    const std::string undead = std::to_string(ended.pid);  // It still has a name, and no command line.
    const std::tuple<std::string, const char*, Texts, int> cases[] = {
        {"\n" + pid, "sleep", {}, -2},
        {"", "sleep", {}, -2},
        {"pid", "sleep", {}, NM_ERR_NOT_A_NUMBER},
        {"2147483648", "sleep", {}, NM_ERR_NOT_A_NUMBER},
        {"-7\n", "sleep", {}, -7},
        {"0", "sleep", {}, -3},
        {"4999999\n", "sleep", {}, -3},
        {pid, "slee", {}, -5},
        {undead, "sleep", {"0.1"}, -7},
        {undead, "sleep", {}, ended.pid},
        {pid, "sleep", {"sleep"}, -8},
        {pid, "sleep", {"2s", "600"}, -8},
        {pid, "sleep", {"600", "1s", "2s", "3s"}, -8},
        {pid, "sleep", {"60"}, -8},
        {pid + "\nrest", "sleep", {"600", "2s"}, sleeper.pid},
        {pid, "sleep", {"2s"}, sleeper.pid}};
    for (const auto& [file, comm, args, result] : cases) {
        put(dir / "pid", file);
        EXPECT_EQ(checkPidFileByCmdArgs(dir / "pid", comm, args), result) << file << " " << comm;
    }
    EXPECT_EQ(checkPidFileByCmdArgs(dir / "none", "sleep", {}), -1);
    EXPECT_EQ(getProcIdByCmdArgs("sleep", {"1s", "2s"}), sleeper.pid);
    EXPECT_EQ(getProcIdByCmdArgs("sleep", {"2s", "1s"}), -1);
}

// What takes seconds on the fastest machine comes last, and all at once.
template <class Work>
auto start(Work work) {
    return std::async(std::launch::async, std::move(work));
}

// Another process gives "swlock7" back after half a second, and keeps "swlock8".
void wait_for_locks() {
    const std::tuple<const char*, int, double> cases[] = {{"/b/swlock7", 0, 1}, {"swlock8", NM_ERR_LOCK, 10}};
    for (const auto& [path, result, seconds] : cases) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(std::min(lock_ex(path), 0), result) << path;
        const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - begin;
        EXPECT_GT(waited.count(), seconds - 0.1) << path;
        EXPECT_LT(waited.count(), seconds + 3) << path;
    }
}

void be_refused() {
    const ScratchDir dir;
    put(dir / "read/swlock8", "old");
    put(dir / "written/swlock8", "old");
    put(dir / "swlock9", "from");
    put(dir / "copy/swlock9", "to");
    auto shared = start([] { return lock_sh("swlock8"); });
    auto reader = start([&dir] { return readValue(dir / "read/swlock8", true); });
    auto writer = start([&dir] { return writeValue(dir / "written/swlock8", "new", true); });
    EXPECT_EQ(copy_file(dir / "swlock9", dir / "copy/swlock9"), NM_ERR_LOCK) << "one name, one lock";
    EXPECT_EQ(slurp(dir / "copy/swlock9"), "to");
    EXPECT_TRUE(is_lock_free("swlock9"));
    EXPECT_EQ(shared.get(), NM_ERR_LOCK);
    EXPECT_EQ(reader.get(), "");
    EXPECT_EQ(writer.get(), NM_ERR_LOCK);
    EXPECT_EQ(slurp(dir / "written/swlock8"), "") << "a writer empties before it asks";
}

// systemctl writes down its arguments, one call a line in brackets, and fails for names with "dead".
void control_units() {
    const ScratchDir dir;
    put(dir / "systemctl", "#!/bin/sh\n{ printf '[%s]' \"$@\"; echo; } >>" + (dir / "journal") +
                               "\ncase $2 in *dead*) exit 3 ;; esac\n");
    fs::permissions(dir / "systemctl", fs::perms::owner_all);
    run("mount --bind " + (dir / "systemctl") + " /usr/bin/systemctl");

    const std::string unit = "nm-dhclient@x y;touch pwned;$(touch pwned)`touch pwned`'\"";
    EXPECT_EQ(service_start("nm-dhclient@", unit.c_str() + strlen("nm-dhclient@"), "PATH=/a\nMODE=-A"), 0);
    EXPECT_EQ(slurp("/var/run/network/." + unit + ".env"), "PATH=/a\nMODE=-A");
    std::string expected = "[start][" + unit + ".service]\n";
    using Verb = int (*)(const char* service, const char* instance, const char* env);
    const std::tuple<const char*, Verb, int> verbs[] = {
        {"stop", service_stop, 1},       {"restart", service_restart, 1}, {"enable", service_enable, 1},
        {"disable", service_disable, 1}, {"status", service_status, 1},   {"start", service_start, 5}};
    for (const auto& [verb, control, attempts] : verbs) {
        EXPECT_EQ(control("nm-dead", nullptr, nullptr), 3) << verb;
        for (int i = 0; i < attempts; ++i) {
            expected += std::string("[") + verb + "][nm-dead.service]\n";
        }
    }
    fs::create_directory("/var/run/network/.nm-plmd@");
    for (const char* name : {"a\nb", "/../escaped", "*", "sw?ev1", "sw[d]"}) {
        EXPECT_EQ(service_stop("nm-plmd@", name, "X=1"), NM_ERR_BAD_FORMAT) << name;
    }
    EXPECT_EQ(service_stop("--version;", nullptr, "X=1"), NM_ERR_BAD_FORMAT);
    EXPECT_FALSE(fs::exists("/var/run/network/escaped.env") || fs::exists("pwned"));
    EXPECT_EQ(slurp(dir / "journal"), expected);
    run("umount /usr/bin/systemctl");
}

void call_ten_thousand_times() {
    const ScratchDir dir;
    put(dir / "swfile4", "text");
    const std::string long_script = "exit 1\n" + std::string(200000, '#');
    const std::function<bool(const char*)> calls[] = {
        [](const char* script) { return system_cmd(script) == 1; },
        [](const char* script) { return exec(script).empty(); },
        [&dir](const char*) { return readValue(dir / "swfile4", true) == "text"; },
        [&dir](const char*) { return readValue(dir / "none", false).empty(); }};
    std::vector<std::future<void>> threads;
    for (const auto& call : calls) {
        threads.push_back(start([&calls, &call, &long_script] {
            for (int i = 0; i < 10000; ++i) {
                ASSERT_TRUE(call(i % 200 == 0 ? long_script.c_str() : "exit 1")) << &call - calls;
            }
        }));
    }
}

TEST(UtilsWaiting, HeldLocksDeadUnitsAndTenThousandCallsLeaveNothingBehind) {
    const nm::LockGuard kept("swlock8");
    const std::ptrdiff_t descriptors = open_descriptors();
    const int given_back = lock_ex("/a/swlock7");
    fflush(nullptr);
    const pid_t other = fork();
    if (other == 0) {
        wait_for_locks();
        fflush(nullptr);
        _exit(HasFailure() ? 1 : 0);
    }
    std::future<void> threads[] = {start(be_refused), start(control_units), start(call_ten_thousand_times)};
    usleep(500000);
    EXPECT_EQ(unlock_ex(given_back, "/a/swlock7", false), 0);
    for (auto& thread : threads) {
        thread.get();
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    int status = -1;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0) << "a check of the other process failed above";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
}

}  // namespace
