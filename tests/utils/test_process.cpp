// Commands, units, and locks that others hold: results, sizes, hostile words, waiting.
#include <sys/wait.h>

#include <future>
#include <stdexcept>

#include "utils/shell_text.h"
#include "utils_support.h"

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

TEST(UtilsProcess, PlainCommandsAreRunAsByTheShell) {
    const Scratch dir;
    const auto script = [&](const char* name, const std::string& text) {
        put(dir / name, text);
        fs::permissions(dir / name, fs::perms::all);
    };
    const std::string facts =
        "echo $#:$*; echo aside >&2; grep -E 'Sig(Blk|Ign)' /proc/self/status; exit 7\n";
    script("facts", "#!/bin/sh\n" + facts);
    script("bare", facts);  // a shell takes it for its own
    script("dies", "#!/bin/sh\nkill -9 $$\n");
    const std::string calls[] = {
        dir / "facts a  b.c:/@%+=,- ",    dir / "bare x", dir / "absent",   dir / "facts >/dev/null 2>&1",
        dir / "facts 1 >/dev/null 2>&1 ", "/tmp",         "/bin/echo a=~ *"};
    const auto outcome = [&](const std::string& command) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int result = system_cmd(command.c_str());
        const std::string out = testing::internal::GetCapturedStdout();
        return std::to_string(result) + out + testing::internal::GetCapturedStderr();
    };
    for (const std::string& call : calls) {
        EXPECT_EQ(outcome(call), outcome("\\" + call)) << "only a shell takes the backslash away";
    }
    EXPECT_EQ(system_cmd((dir / "dies").c_str()), NM_ERR_SERVICE);
    struct sigaction now = {};
    EXPECT_TRUE(sigaction(SIGINT, nullptr, &now) == 0 && now.sa_handler == SIG_DFL);
}

TEST(UtilsProcess, ChildrenInheritNothing) {
    const nm::LockGuard held("swfile5");
    const std::string inherited = exec(script_of(kFiveMegabytes, "ls -l /proc/self/fd; :").c_str());
    EXPECT_NE(inherited.find("pipe:"), std::string::npos);
    EXPECT_EQ(inherited.find("memfd"), std::string::npos) << inherited;
    EXPECT_EQ(inherited.find(".lck"), std::string::npos) << inherited;
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

// What takes seconds on the fastest machine comes last, and all at once.
template <class Work>
auto start(Work work) {
    return std::async(std::launch::async, std::move(work));
}

void be_refused() {
    const Scratch dir;
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
    const Scratch dir;
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

TEST(UtilsWaiting, HeldLocksAndDeadUnitsLeaveNothingBehind) {
    const nm::LockGuard kept("swlock8");
    const std::ptrdiff_t descriptors = open_descriptors();
    auto refusals = start(be_refused);
    control_units();
    refusals.get();
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left behind";
}

}  // namespace
