// Who owns what: claims that cannot hold at once; the forms of the reports on that and on the state; the
// picture.
#include "conforms.h"
#include "inspect/owners.h"
#include "inspect/owners_view.h"
#include "inspect/status.h"
#include "sandbox_fixture.h"

using namespace fixture;
using nm::Claim;
using nm::Resource;

namespace {

TEST(Owners, ClaimsOfTwoOwnersAreFoundUnlessOneIsPartOfTheOther) {
    const struct {
        const char* name;
        Claim a, b;
        size_t found;
    } rows[] = {
        {"the same numbers",
         {Resource::Table, "", "", 7, 7, "a", ""},
         {Resource::Table, "", "", 7, 7, "b", ""},
         1},
        {"one owner", {Resource::Table, "", "", 7, 7, "a", ""}, {Resource::Table, "", "", 7, 7, "a", ""}, 0},
        {"overlapping",
         {Resource::Table, "", "", 1, 7, "a", ""},
         {Resource::Table, "", "", 7, 9, "b", ""},
         1},
        {"within", {Resource::Table, "", "", 1, 7, "a", ""}, {Resource::Table, "", "", 7, 7, "b", ""}, 0},
        {"apart", {Resource::Table, "", "", 1, 6, "a", ""}, {Resource::Table, "", "", 7, 7, "b", ""}, 0},
        {"another resource",
         {Resource::Table, "", "", 7, 7, "a", ""},
         {Resource::Priority, "", "", 7, 7, "b", ""},
         0},
        {"families",
         {Resource::Priority, "4", "", 7, 7, "a", ""},
         {Resource::Priority, "6", "", 7, 7, "b", ""},
         0},
        {"a bit",
         {Resource::Mark, "", "", 0xc, 0xc, "a", ""},
         {Resource::Mark, "", "", 0x18, 0x18, "b", ""},
         1},
        {"other bits",
         {Resource::Mark, "", "", 0xc, 0xc, "a", ""},
         {Resource::Mark, "", "", 0x30, 0x30, "b", ""},
         0},
        {"a name", {Resource::Set, "", "lan", 0, 0, "a", ""}, {Resource::Set, "", "lan", 0, 0, "b", ""}, 1},
    };
    for (const auto& row : rows) {
        nm::OwnersView view({row.a, row.b});
        nm::find_design_collisions(view);
        EXPECT_EQ(view.report()["findings"].size(), row.found) << row.name;
    }
}

TEST(Owners, TheReportIsWhatItsSchemaSays) {
    run("ip rule add pref 13 lookup 100");
    put("/etc/networkmanagement/a\nb", "");
    Json::Value report;
    (void)report_owners(report);
    EXPECT_TRUE(conforms("owners.json", report)) << report;
    EXPECT_GE(report["findings"].size(), 2U) << report["findings"];
}

/// The site of the demo, without a device of it.
TEST(Status, TheReportIsWhatItsSchemaSays) {
    put("/etc/networkmanagement/device_info.json", slurp(NM_SITE_DIR "/device_info.json"));
    Json::Value report;
    EXPECT_EQ(report_status(report), NM_OK) << report["unread"];
    EXPECT_TRUE(conforms("status.json", report)) << report;
    EXPECT_EQ(report["ports"].size(), 6U);
    EXPECT_EQ(report["ports"][0]["link"], "absent");
}

TEST(Status, ThePictureIsXmlWhateverANameHoldsAndOfManyGrows) {
    Json::Value report;
    (void)report_status(report);
    report["host"] = "a<&>\x01\xff\xc3\xa9\xed\xa0\x80";  // no character: a control, a lone byte, half a pair
    const std::string page = draw_status(report);
    EXPECT_NE(page.find(">a&lt;&amp;&gt;??\xc3\xa9???"), std::string::npos) << page.substr(0, 800);
    for (int i = 0; i < 70; ++i) {
        report["lans"].append(report["lans"].empty() ? Json::objectValue : report["lans"][0]);
    }
    const std::string grown = draw_status(report);
    EXPECT_NE(page.find("height=\"297mm\""), std::string::npos) << page.substr(0, 300);
    EXPECT_EQ(grown.find("height=\"297mm\""), std::string::npos);
    EXPECT_NE(grown.find(">and 1"), std::string::npos);
}

}  // namespace
