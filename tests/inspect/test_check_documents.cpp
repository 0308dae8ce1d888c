// The check of documents against planted faults and against what is none (faults.txt), over the site of the
// demo: what is found, and that the place in the text is that of the value.
#include <json/json.h>
#include <json/reader.h>

#include "conforms.h"
#include "inspect/check_documents.h"
#include "sandbox_fixture.h"

using namespace fixture;

namespace {

using Documents = std::map<std::string, Json::Value>;
using Names = std::multiset<std::string>;

const std::string kStore = "/etc/networkmanagement/";

struct Checked : Frugal {
    ~Checked() override { clean(); }
    static void clean() {
        for (const auto& entry : fs::directory_iterator(kStore)) {
            entry.path().extension() == ".json" ? void(fs::remove(entry.path())) : void();
        }
    }
};

std::vector<std::string> split(const std::string& text, const std::string& sign) {
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t end = text.find(sign); end != std::string::npos; end = text.find(sign, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + sign.size();
    }
    parts.push_back(text.substr(begin));
    return parts;
}

/// "DOCUMENT POINTER VALUE". A pointer's list index may be the one behind the last.
void change(const std::string& words, Documents& documents) {
    std::istringstream line(words);
    std::string name, pointer, text;
    line >> name >> pointer >> std::ws;
    std::getline(line, text);
    Json::Value* value = &documents[name];
    Json::Value* parent = nullptr;
    std::string last;
    for (const std::string& token : split(pointer.substr(1), "/")) {
        parent = value;
        last = token;
        const bool is_index = value->isArray();
        value = is_index ? &(*value)[std::stoi(token)] : &(*value)[token];
    }
    if (text == "-") {
        parent->removeMember(last);
        return;
    }
    Json::CharReaderBuilder builder;
    std::istringstream stream(text);
    std::string errors;
    ASSERT_TRUE(Json::parseFromStream(builder, stream, value, &errors)) << words;
}

Documents site() {
    Documents documents;
    for (const auto& entry : fs::directory_iterator(NM_SITE_DIR)) {
        documents[entry.path().stem()] = json(slurp(entry.path()));
    }
    return documents;
}

void store(const Documents& documents) {
    Checked::clean();
    for (const auto& [name, value] : documents) {
        put(kStore + name + ".json", nm::write_styled_json(value));
    }
}

/// What stands at the finding's place: the value, the name of an object or a list, or of what holds a member
/// that is missing.
bool is_well_placed(const Json::Value& finding) {
    std::istringstream text(slurp(finding["path"].asString()));
    std::string line;
    for (Json::UInt64 i = 0; i < finding["line"].asUInt64(); ++i) {
        std::getline(text, line);
    }
    const std::string there = line.substr(finding["column"].asUInt64() - 1);
    const std::string document = slurp(finding["path"].asString());
    Json::Value value = json(document);
    std::string held;
    for (const std::string& token : split(finding["pointer"].asString().substr(1), "/")) {
        const Json::Value child = value.isArray() ? value[std::stoi(token)] : value.get(token, "<none>");
        if (child == "<none>") {
            break;
        }
        held = value.isArray() ? "" : token;
        value = child;
    }
    const bool is_container = (value.isObject() || value.isArray()) && !held.empty();
    const std::string expected = is_container ? "\"" + held + "\"" : nm::show_json(value).substr(0, 1);
    return there.rfind(expected, 0) == 0 || there.rfind("\"" + expected, 0) == 0;
}

Names findings_of(const Json::Value& report, const std::string& first) {
    Names names;
    for (const Json::Value& finding : report["findings"]) {
        const std::string document = finding["document"].asString();
        names.insert((finding["grade"] == "error" ? "E" : "W") + (document == first ? "" : document + ":") +
                     finding["pointer"].asString());
        EXPECT_TRUE(is_well_placed(finding)) << finding;
        EXPECT_FALSE(finding["what"].asString().empty() || finding["right"].asString().empty()) << finding;
    }
    return names;
}

TEST_F(Checked, FaultsAreFoundWhereTheyAreAndNothingElse) {
    Documents base = site();
    std::ifstream lines(NM_INSPECT_DIR "/faults.txt");
    size_t planted = 0;
    size_t harmless = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("base ", 0) == 0) {
            change(line.substr(5), base);
        }
        const std::vector<std::string> halves = split(line + " ", " => ");
        if (line.empty() || line[0] == '#' || halves.size() != 2) {
            continue;
        }
        Documents documents = base;
        for (const std::string& words : split(halves[0], " ; ")) {
            change(words, documents);
        }
        store(documents);
        std::istringstream expected(halves[1]);
        const Names wanted{std::istream_iterator<std::string>(expected), {}};
        Json::Value report;
        const int code = check_documents({}, report);
        const Names found = findings_of(report, line.substr(0, line.find(' ')));
        EXPECT_EQ(found, wanted) << line;
        const bool has_error =
            std::any_of(wanted.begin(), wanted.end(), [](const std::string& name) { return name[0] == 'E'; });
        EXPECT_EQ(code, has_error ? NM_ERR_BAD_VALUE : NM_OK) << line;
        EXPECT_TRUE(conforms("check.json", report)) << report;
        EXPECT_EQ(report.toStyledString().find("secret-word"), std::string::npos) << line;
        wanted.empty() ? ++harmless : ++planted;
    }
    EXPECT_TRUE(planted >= 60 && harmless >= 15) << planted << " faults, " << harmless << " others";
}

std::string first_finding(const std::vector<std::string>& words, int& code) {
    Json::Value report;
    code = check_documents(words, report);
    const Json::Value finding = report["findings"].get(Json::ArrayIndex{0}, Json::Value());
    EXPECT_TRUE(conforms("check.json", report)) << report;
    return finding.isNull()
               ? report["documents"][0]["state"].asString()
               : std::to_string(finding["line"].asInt()) + ":" + std::to_string(finding["column"].asInt()) +
                     " " + finding["what"].asString();
}

TEST_F(Checked, TextsThatAreNoDocumentsAreToldByLineAndColumn) {
    const struct {
        std::string text, finding;
        int code;
    } cases[] = {
        {"", "1:1 the file is empty", NM_ERR_BAD_VALUE},
        {"[]", "1:1 the document is not an object", NM_ERR_BAD_VALUE},
        {"{\n \"RULES\": {\n", "3:1 this is not JSON: Missing '}' or object member name", NM_ERR_BAD_VALUE},
        {"{\n \"A\": 1,\n  \"A\": 2}", "3:3 Duplicate key: 'A'", NM_OK},
        {nested(2000), "1:1 this is not JSON: it is nested too deep", NM_ERR_BAD_VALUE},
        {"{\"\xc3\xa4\xc3\xb6\":1, \"RULES\": 7}", "1:19 7 is not valid", NM_ERR_BAD_VALUE},
        {"{ // comment\n \"a\\\"b\" :\n\n {},\"RULES\"\n : [1]}", "4:5 a list of 1 is not valid",
         NM_ERR_BAD_VALUE},
        {"{\"RULES\":{\"SITE\":[{\"ACTION\":\"DENY\",\"SRC_IP\":\"" + std::string(1 << 20, '1') + "\"}]}}",
         "", NM_ERR_BAD_VALUE},
        {"{}", "checked", NM_OK},
    };
    for (const auto& test : cases) {
        const File file(kStore + "firewall.json", test.text);
        int code = NM_OK;
        const std::string found = first_finding({"firewall"}, code);
        EXPECT_EQ(found.substr(0, test.finding.size()), test.finding) << test.text.substr(0, 80);
        EXPECT_EQ(code, test.code) << test.finding;
        EXPECT_LT(found.size(), 200U);
    }
}

TEST_F(Checked, FilesStandForTheStoredDocumentsThatTheyAreToReplace) {
    const Scratch scratch;
    const File device(kStore + "device_info.json", R"({"WAN_PORT":{"PORT1":{}}})");
    const File rules(kStore + "policy.json",
                     R"({"RULES":{"SITE":[{"STEERING":"DIRECT","INTERFACE":"PORT2"}]}})");
    put(scratch / "policy.new", R"({"RULES":{"SITE":[{"STEERING":"DIRECT","INTERFACE":"PORT3"}]}})");
    put(scratch / "device_info.json", R"({"RGLINK_PORT":{"PORT3":{"INTERFACE":"a","DEV_TYPE":"virtio"}}})");
    const std::string absent = "1:52 \"PORT2\" is not valid";
    const struct {
        std::vector<std::string> words;
        std::string finding;
        int code;
    } cases[] = {
        {{"policy"}, absent, NM_ERR_BAD_VALUE},
        {{scratch / "policy.new", scratch / "device_info.json"}, "checked", NM_OK},
        {{"policy=" + scratch / "policy.new", "device_info=" + scratch / "device_info.json"},
         "checked",
         NM_OK},
        {{scratch / "device_info.json"}, absent, NM_ERR_BAD_VALUE},  // a stored rule would lose its port
        {{"qos"}, "absent", NM_OK},
        {{"polizy"}, "unknown", NM_ERR_NOT_FOUND},
        {{scratch / "qos.json"}, "unreadable", NM_ERR_NOT_FOUND},
        {{"qos=" + scratch / ""}, "unreadable", NM_ERR_NOT_FOUND},
        {{"qos=/dev/zero"}, "unreadable", NM_ERR_NOT_FOUND},
    };
    for (const auto& test : cases) {
        int code = NM_OK;
        EXPECT_EQ(first_finding(test.words, code), test.finding) << test.words[0];
        EXPECT_EQ(code, test.code) << test.words[0];
    }
}

}  // namespace
