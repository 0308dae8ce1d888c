// Stored documents migrated where they lie: what becomes of good, old, newer and broken ones.
#include <sys/stat.h>

#include "conforms.h"
#include "networkinterface.h"

using namespace fixture;

namespace {

const std::string kStore = "/etc/networkmanagement/",
                  kDefaults = "/usr/lib/networkmanagement/etc/default_config/";
const std::string kOld = R"({"WAN_PORT":{"PORT1":{"PASSWORD":"geheim"}}})";

struct StoredDocuments : Frugal {
    StoredDocuments() { clean(); }
    ~StoredDocuments() override { clean(); }
    static void clean() {
        for (const fs::path directory : {"/etc/networkmanagement", "/var/run/network", "/var/log/network"}) {
            for (const auto& entry : fs::directory_iterator(directory)) {
                const std::string name = entry.path().filename();
                if (name.find(".json") != std::string::npos || name.find(".curr") != std::string::npos) {
                    fs::remove(entry.path());
                }
            }
        }
    }
    static Json::Value migrate(const std::string& name, bool dry_run = false) {
        Json::Value report;
        EXPECT_EQ(migrate_documents({name}, dry_run, report), 0) << name;
        EXPECT_TRUE(conforms("migration.json", report)) << report;
        return report[0];
    }
};

TEST_F(StoredDocuments, AreMigratedOnceAndKeepTheirAccess) {
    const std::string path = kStore + "device_info.json";
    put(path, kOld);
    fs::permissions(path, fs::perms::owner_read);
    struct stat before = {}, access = {}, again = {};
    ASSERT_EQ(chown(path.c_str(), 7, 8) | stat(path.c_str(), &before), 0);
    const Json::Value planned = migrate("device_info", true);
    EXPECT_TRUE(slurp(path) == kOld && list_difference_reports("").empty() &&
                is_lock_free("device_info.json"));
    const Json::Value done = migrate("device_info");
    EXPECT_EQ(done["difference"], planned["difference"]);
    EXPECT_TRUE(done["state"] == "migrated" && done["from"] == "0.0.0" && done["to"] == "1.0.2");
    EXPECT_EQ(done["difference"]["added"].asInt(), 2);
    EXPECT_EQ(list_difference_reports("device_info")[0]["path"], done["report"]);
    ASSERT_EQ(stat(path.c_str(), &access), 0);
    EXPECT_NE(access.st_ino, before.st_ino) << "it is replaced, for a reader or a kill to find it whole";
    EXPECT_TRUE(access.st_uid == 7 && access.st_gid == 8 && (access.st_mode & 07777) == S_IRUSR);
    const std::string once = slurp(path);
    EXPECT_EQ(migrate("device_info")["state"], "current");
    EXPECT_TRUE(stat(path.c_str(), &again) == 0 && again.st_ino == access.st_ino && slurp(path) == once);
    const Json::Value reports = list_difference_reports("");
    EXPECT_TRUE(reports.size() == 1 && conforms("difference.json", reports)) << reports;
    EXPECT_TRUE(conforms("difference.json", done["difference"]) && !conforms("difference.json", done));
    EXPECT_TRUE(conforms("servicePort.json", conftmpl_document("servicePort")));
    put(path, R"({"dbversion":"1.0.3"})");
    EXPECT_EQ(migrate("device_info")["state"], "newer");
    EXPECT_EQ(slurp(path), R"({"dbversion":"1.0.3"})");
    EXPECT_EQ(migrate("segment")["state"], "absent");
    EXPECT_FALSE(fs::exists(kStore + "segment.json"));
    Json::Value report = "before";
    EXPECT_EQ(migrate_documents({"device_info", "none"}, false, report), NM_ERR_BAD_ACT);
    EXPECT_EQ(report, "before");
}

TEST_F(StoredDocuments, ThatAreBrokenAreKeptBesideTheirReplacement) {
    const std::string large = "{\"a\":\"" + std::string(5 << 20, 'x');
    const std::string good = R"({"RULES":{"SITE":[]}})", shipped = R"({"RULES":{"x":[]}})";
    const std::array<std::string, 5> cases[] = {
        {"", good, shipped, "/var/run/network/firewall.curr", good},
        {"{\"RULES\":", "", shipped, kDefaults + "firewall.json", shipped},
        {"[1]", "[]", shipped, kDefaults + "firewall.json", shipped},
        {large, "{", "", "template", R"({"RULES":{}})"},
        {nested(5000), good, "", "/var/run/network/firewall.curr", good},
        {std::string("\0\xff", 2), "", "", "template", R"({"RULES":{}})"},
    };
    const std::string path = kStore + "firewall.json";
    fs::create_directories(kDefaults);
    for (const auto& [text, current, shipped_text, source, becomes] : cases) {
        clean();
        put(path, text);
        const File in_force("/var/run/network/firewall.curr", current);
        const File standard(kDefaults + "firewall.json", shipped_text);
        const Json::Value planned = migrate("firewall", true);
        EXPECT_TRUE(slurp(path) == text && !fs::exists(planned["kept"].asString()));
        const Json::Value done = migrate("firewall");
        EXPECT_TRUE(done["state"] == "repaired" && done["source"] == source) << done;
        EXPECT_TRUE(slurp(done["kept"].asString()) == text) << done;
        EXPECT_EQ(slurp(path), becomes + "\n");
        EXPECT_EQ(migrate("firewall")["state"], "current");
        put(path + "2", text);
        fs::rename(path + "2", path);
        EXPECT_EQ(migrate("firewall")["kept"], done["kept"]) << "the same text is kept once";
    }
    put(path, "{");
    const std::string kept = migrate("firewall", true)["kept"].asString();
    put(kept, "another text");
    Json::Value report;
    EXPECT_EQ(migrate_documents({"firewall"}, false, report), NM_ERR_WRITE);
    EXPECT_TRUE(report[0]["state"] == "failed" && slurp(path) == "{" && slurp(kept) == "another text");
}

}  // namespace
