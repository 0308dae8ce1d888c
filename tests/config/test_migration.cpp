// Formats of stored documents from version to version, and the difference of two documents.
#include <random>

#include "golden.h"
#include "networkinterface.h"

using namespace fixture;

namespace {

TEST(Migration, LeadsFromEveryVersionToTheCurrentOne) {
    for (const Json::Value& row : golden("migration")) {  // name, document before and after, words of the log
        const LogTail log;
        Json::Value document = row[1];
        EXPECT_EQ(nm::migrate_document(row[0].asString(), document), NM_OK) << row;
        EXPECT_EQ(document, row[2]) << row;
        EXPECT_TRUE(log.has(row[3].asString())) << row;
    }
    for (const std::string& name : migrated_documents()) {
        for (const char* text : {"[]", "7", "'text'", "null"}) {
            Json::Value document = json("{'d':" + std::string(text) + "}")["d"];
            const bool is_list_made = name.rfind("static_route", 0) == 0 && document.isNull();
            EXPECT_EQ(nm::migrate_document(name, document) == NM_OK, is_list_made) << name << text;
        }
        Json::Value empty = conftmpl_document(name);
        EXPECT_EQ(nm::migrate_document(name, empty), NM_OK) << name;
        EXPECT_EQ(empty, conftmpl_document(name)) << name;
        const Json::Value shipped =
            json(slurp("/usr/lib/networkmanagement/etc/default_config/" + name + ".json"));
        Json::Value migrated = shipped;
        EXPECT_TRUE(nm::migrate_document(name, migrated) == NM_OK && migrated == shipped) << name;
        const bool is_of_a_model = name == "device_info" || name == "hw_port_info";
        EXPECT_TRUE(is_of_a_model || shipped == empty) << name;
    }
    Json::Value services = json("{}");
    EXPECT_EQ(migrate_service_port(services), NM_OK);
    EXPECT_EQ(services["PREDEFINED"].size(), get_default_service_ports().size());
    EXPECT_TRUE(services["PREDEFINED"][7]["ports"] == "13131" && services["dbversion"] == "0.0.3");
    EXPECT_EQ(nm::migrate_document("none", services), NM_ERR_BAD_ACT);
}

/// Values of all kinds under the names that formats know and others.
Json::Value random_value(std::mt19937& random, int depth) {
    static const char* const names[] = {
        "META",           "VERSION",      "dbversion",    "WAN_PORT", "PORT1",   "DHCP_SERVICE", "PREDEFINED",
        "WAN_IFACE_INFO", "STATIC_ROUTE", "staticRoute6", "IP",       "NETMASK", "device_type",  "x"};
    static const char* const texts[] = {"1.0.2", "0.0.1", "9", "", "ethernet", "10.1.2.3", "24"};
    Json::Value value(texts[random() % 7]);
    const unsigned kind = depth == 3 ? 0 : random() % 5;
    if (depth == 0 || kind == 4) {
        return value;
    }
    value = kind < 3 ? Json::objectValue : Json::arrayValue;
    for (unsigned i = random() % 6; i > 0; --i) {
        const Json::Value member = random_value(random, depth - 1);
        kind < 3 ? void(value[names[random() % 14]] = member) : void(value.append(member));
    }
    return value;
}

TEST(Migration, ChangesNothingTheSecondTimeAndLosesNoMember) {
    std::mt19937 random(20261122);
    int changed = 0;
    for (int i = 0; i < 1500; ++i) {
        const Json::Value before = random_value(random, 3);
        for (const std::string& name : migrated_documents()) {
            Json::Value once = before;
            const int code = nm::migrate_document(name, once);
            Json::Value twice = once;
            ASSERT_EQ(nm::migrate_document(name, twice), code) << name << before;
            ASSERT_EQ(nm::write_compact_json(once), nm::write_compact_json(twice)) << name << before;
            changed += once != before;
            for (const std::string& member :
                 before.isObject() ? before.getMemberNames() : std::vector<std::string>()) {
                ASSERT_TRUE(once.isMember(member)) << name << before;
            }
        }
    }
    EXPECT_GT(changed, 500) << "the documents are worth the search";
}

TEST(DictDiffer, NamesWhatWasAddedRemovedAndChanged) {
    for (const Json::Value& row : golden("difference")) {  // before, after, the lines
        EXPECT_EQ(show_difference(DictDiffer(row[0], row[1]).report()), row[2].asString()) << row;
    }
    Json::Value many;
    many[1499] = 1;
    const Json::Value report = DictDiffer(Json::arrayValue, many).report();
    EXPECT_TRUE(report["added"].asInt() == 1500 && report["differences"].size() == 1000);
}

TEST(DifferenceReports, AreDatedAndTheNewestTenStay) {
    const mode_t mask = umask(0);
    std::string path, first;
    for (int i = 0; i < 12; ++i) {
        Json::Value report = DictDiffer(json("{'a':1}"), json("{'PASSWORD':'geheim'}")).report();
        report["number"] = i;
        ASSERT_EQ(store_difference_report("static_route", report, path), 0);
        first = i == 0 ? path : first;
        ASSERT_EQ(store_difference_report("static_route6", report, path), 0);
    }
    umask(mask);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(slurp(path).find("geheim") == std::string::npos && !fs::exists(first));
    put("/var/log/network/diff_static_route_1.json", "{");
    const Json::Value reports = list_difference_reports("static_route");
    ASSERT_EQ(reports.size(), 10U) << "one that cannot be read is left out";
    EXPECT_TRUE(reports[0]["number"] == 2 && reports[9]["number"] == 11 && reports[0]["added"].asInt() == 1);
    EXPECT_THAT(reports[0]["date"].asString(), testing::MatchesRegex("20..-..-..T..:..:..Z"));
    EXPECT_EQ(list_difference_reports("").size(), 20U);
}

}  // namespace
