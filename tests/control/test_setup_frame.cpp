// The frame of setup calls: what a request text makes it do, and what one target's life looks like.

#include "control/setup_frame.h"
#include "control/setup_wan.h"
#include "golden.h"

using namespace fixture;

namespace {

const std::string kPath = "/etc/networkmanagement/new.json";
std::string journal;

// A family whose targets and follow-ups only write down how they were called.
int record(std::string name, uint32_t act, uint32_t opt, std::string path, Json::Value cfg) {
    journal += name + " " + std::to_string(act) + " " + std::to_string(opt) + "; ";
    EXPECT_EQ(path + cfg["mark"].asString(), kPath + "new");
    return name == "PORT2" ? -1045 : 0;
}

int follow(std::string path) {
    journal += "follow " + path;
    throw -1;
}

const nm::RequestFamily kFamily{record, {follow, follow}};

TEST(Request, IsWorkedMemberByMember) {
    const File document(kPath, R"({"mark":"new"})");
    // Text, code and what is called. A later member of the wrong form fails alone; in the first one there may
    // be no path to trust.
    Json::Value requests = golden("requests");
    const std::string first = "{'PORT1':{'act':3,'path':'" + kPath + "','pad':";
    for (const auto& [pad, code, calls] :
         {std::tuple("'" + std::string(10 << 20, 'x') + "'", 0, "PORT1 3 0; "), {nested(5000), -1032, ""}}) {
        Json::Value& row = requests[requests.size()];
        row[0] = first + pad + "}}", row[1] = code, row[2] = calls;
    }
    for (const Json::Value& row : requests) {
        const std::string request = quoted(row[0].asString());
        journal.clear();
        EXPECT_EQ(nm::run_request(request.c_str(), kFamily), row[1].asInt()) << request.substr(0, 200);
        EXPECT_EQ(journal, row[2].asString()) << request.substr(0, 200);
    }
    EXPECT_EQ(Setup_wanif(nullptr), NM_ERR_NULL_ARG);
}

/// What the target layer builds, locks and destroys.
struct Thing {
    ~Thing() { journal += is_lock_free("thing") ? "gone" : "gone while locked"; }
    int work(const char* verb, uint32_t opt) {
        journal += verb + std::to_string(opt) + (is_lock_free("thing") ? " without lock, " : ", ");
        return opt == 99 ? throw std::bad_alloc() : -static_cast<int>(opt);
    }
    int add_if(uint32_t opt) { return work("add ", opt); }
    int del_if(uint32_t opt) { return work("del ", opt); }
    int alt_if(uint32_t opt) { return work("alt ", opt); }
};

int create_thing(Thing** out, std::string name, std::string path, Json::Value cfg) {
    journal += path + (cfg.isNull() ? " as stored: " : ": ");
    *out = name == "REFUSED" ? nullptr : new Thing;
    return name == "REFUSED" ? NM_ERR_NOT_NULL : 0;
}

int run_thing(const char* name, uint32_t act, uint32_t opt) {
    static const nm::Family<Thing> family{
        "Thing",        create_thing,   [](Thing&, const std::string&) { return std::string("a/b/thing"); },
        &Thing::add_if, &Thing::del_if, &Thing::alt_if};
    journal.clear();
    return nm::run_target(family, {name, act, opt, "/new", Json::Value("new")});
}

TEST(Target, IsBuiltLockedOperatedAndDestroyed) {
    const std::tuple<const char*, uint32_t, uint32_t, int, std::string> cases[] = {
        {"THING", 1, 5, -5, "/new: add 5, gone"},
        {"THING", 2, 6, -6, std::string(kDeviceInfoPath) + " as stored: del 6, gone"},
        {"THING", 3, 0, 0, "/new: alt 0, gone"},
        {"THING", 7, 5, NM_ERR_BAD_ACT, "/new: gone"},
        {"THING", 3, 99, NM_ERR_NOMEM, "/new: alt 99, gone"},
        {"REFUSED", 3, 5, NM_ERR_NOT_NULL, "/new: "}};
    const std::ptrdiff_t before = open_descriptors();
    for (const auto& [name, act, opt, code, life] : cases) {
        EXPECT_EQ(run_thing(name, act, opt), code) << name << act << opt;
        EXPECT_EQ(journal, life);
        EXPECT_TRUE(is_lock_free("thing")) << name << act << opt;
    }
    EXPECT_EQ(open_descriptors(), before);
    // The lock handle 0 counts as none, and must not stay behind locked.
    const int input = dup(0);
    close(0);
    EXPECT_EQ(run_thing("THING", 3, 5), NM_ERR_LOCK);
    dup2(input, 0);
    close(input);
    EXPECT_EQ(journal, "/new: gone");
}

TEST(Entry, LetsNothingButACodeOut) {
    const std::pair<int (*)(char*), int> cases[] = {
        {[](char*) -> int { throw -1009; }, -1009},
        {[](char*) -> int { throw Json::LogicError("of JSON"); }, -1012},
        {[](char*) -> int { throw "text"; }, -1011},
        {[](char*) { return -48; }, -48}};
    for (const auto& [request, code] : cases) {
        const LogTail log;
        EXPECT_EQ(nm::run_entry("int Setup_it(char*)", [request = request] { return request(nullptr); }),
                  code);
        EXPECT_TRUE(log.has(SEPARATE_LINE)) << code;
        EXPECT_TRUE(log.has("int Setup_it(char*) >>> Exit " + std::to_string(code)));
    }
}

}  // namespace
