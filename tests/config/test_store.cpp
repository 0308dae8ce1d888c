// The document store: which route serves a call, what a write leaves behind, documents at their limits. And
// the small formats beside it: key=value files and families of rotated files.
#include <limits>
#include <unordered_map>

#include "config/document_scope.h"
#include "fake_service.h"
#include "sandbox_fixture.h"
#include "utils/handles.h"

using namespace fixture;
using namespace std::string_literals;

namespace {

const std::string kPath = "/etc/networkmanagement/doc%n.json";

TEST(Store, ServiceComesFirstAndTheFileIsTheFallback) {
    const std::string served = R"({"error":0,"data":{"from":"service"}})";
    const std::string refused = R"({"error":4,"data":"refused"})";
    const std::string written = "{\"from\":\"caller\"}\n";
    const std::string write = R"(ncaas.write_json {"data":{"from":"caller"},"path":")" + kPath + "\"}";
    const std::string read = "ncaas.read_json {\"path\": \"" + kPath + "\"}";
    const std::tuple<bool, bool, std::string, std::string, const char*, Calls> cases[] = {
        {false, false, served, written, "caller", {}},
        {true, false, served, "old", "service", {write, read}},
        {true, true, served, written, "service", {read}},
        {true, false, "[]", written, "caller", {write, read}},
        {true, false, refused, written, "caller", {write, read}}};
    for (const auto& [has_service, force_file, reply, text, from, calls] : cases) {
        const FakeService ncaas("ncaas", {{"write_json", reply}, {"read_json", reply}});
        const File file(kPath, "old");
        const File marker(has_service ? "/usr/bin/python" : "/tmp/no-marker");
        Json::Value document = json("{'from':'caller'}");
        EXPECT_EQ(json_mem_to_file(kPath, document, force_file), 0);
        EXPECT_EQ(slurp(kPath), text) << has_service << force_file << reply;
        document = "before";
        EXPECT_EQ(json_file_to_mem(kPath, document), 0);
        EXPECT_EQ(document["from"], from) << has_service << force_file << reply;
        EXPECT_EQ(FakeService::take_calls(), calls) << has_service << force_file << reply;
    }
}

TEST(Store, DocumentReadsBackEqual) {
    Json::Value document = json("{'kinds':[{}, [], null, true, -1, '', 0.1, 1e300, -2.5], '':''}");
    document["key \"\n"s + '\0' + "\xc3\xa9"] = "\" \\ / \t\n \xf0\x9f\x98\x80 NUL "s + '\0' + " $(`;";
    document["smallest"] = std::numeric_limits<Json::Int64>::min();
    document["largest"] = std::numeric_limits<Json::UInt64>::max();
    document["big"] = std::string(10 << 20, 'x');
    const std::ptrdiff_t before = open_descriptors();
    const File secret(kPath, "{}");
    fs::permissions(kPath, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_EQ(json_mem_to_file(kPath, document, false), 0);
    EXPECT_EQ(fs::status(kPath).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    Json::Value read;
    ASSERT_EQ(json_file_to_mem(kPath, read), 0);
    EXPECT_TRUE(read == document);
    EXPECT_EQ(open_descriptors(), before);
    for (const std::string& text : {nested(5000), nested(10 << 20), "{"s, "\0"s}) {
        const File file(kPath, text);
        EXPECT_EQ(json_file_to_mem(kPath, read), NM_ERR_PARSE) << text.substr(0, 20);
    }
}

using Pairs = std::unordered_map<std::string, std::string>;

TEST(IniFile, LineIsSplitAtItsFirstSignAndNothingIsTrimmed) {
    const std::map<std::string, Pairs> cases{
        {"url=http://x/?q=1=2\r\na=1\n\na=3", {{"url", "http://x/?q=1=2\r"}, {"a", "3"}}},
        {" a = 1 \n#b=2\n[s]\n=v\nempty=\n", {{" a ", " 1 "}, {"#b", "2"}, {"", "v"}, {"empty", ""}}},
        {"no sign at all\n", {}},
        {"", {{"before", ""}}},
        {{"a=x\0y=z\n", 8}, {{"a", {"x\0y=z", 5}}}}};
    for (const auto& [text, expected] : cases) {
        const File file("/tmp/ini/conf", text);
        Pairs out{{"before", ""}};
        const nm::LockGuard held(file.path);  // nothing waits for it
        EXPECT_EQ(ini_conf_read(file.path, out), 0) << text;
        EXPECT_EQ(out, expected) << text;
    }
    Pairs pairs{{"", "no key"}, {"none", ""}, {"sign", "=a=b="}, {" blank ", "\t\r"}};
    EXPECT_EQ(ini_conf_read("/tmp/ini", pairs), NM_ERR_NOT_FOUND) << "a directory is no file";
    EXPECT_EQ(ini_conf_read("/proc/self/mem", pairs), NM_ERR_OPEN) << "opens and does not read";
    const File file("/tmp/ini/conf", std::string(1 << 20, 'x'));
    EXPECT_EQ(ini_conf_write(file.path, pairs), 0);
    Pairs read;
    EXPECT_EQ(ini_conf_read(file.path, read), 0);
    EXPECT_EQ(read, pairs);
    pairs["key"] = "value\nforged=1";
    EXPECT_EQ(ini_conf_write(file.path, pairs), NM_ERR_BAD_VALUE);
    EXPECT_TRUE(ini_conf_read(file.path, pairs) == 0 && read == pairs) << "the file stays as it was";
}

TEST(DocumentScope, ParsesEachStateOfADocumentOnce) {
    const Scratch dir;
    const std::string path = dir / "doc.json";
    const nm::DocumentScope documents;
    const auto reading = [&] {
        const LogTail log;
        Json::Value document;
        const int ret = json_file_to_mem(path, document);
        const std::string text = ret == 0 ? document["from"].asString() : std::to_string(ret);
        return text + (log.has("Loading " + path) ? " parsed" : "");
    };
    const auto twice = [&] {
        const std::string first = reading();
        return first + " " + reading();
    };
    EXPECT_EQ(reading(), "-1020");
    put(path, R"({"from":"a"})");
    EXPECT_EQ(twice(), "a parsed a");
    put(path, R"({"from":"bb"})");
    EXPECT_EQ(twice(), "bb parsed bb") << "written in place";
    Json::Value stored = json(R"({"from":"c"})");
    EXPECT_EQ(json_mem_to_file(path, stored, true), 0);
    EXPECT_EQ(twice(), "c parsed c");
    put(path, "no JSON");
    EXPECT_EQ(twice(), "-1032 parsed -1032 parsed");
    put(path, "");
    EXPECT_EQ(reading(), "-1020") << "an empty file is none";
    fs::remove(path);
    EXPECT_EQ(reading(), "-1020");
}

TEST(RotateConfig, KeepsTheNewestTenOfOneFamily) {
    const Scratch dir;
    for (int i = 10; i < 22; ++i) {
        put(dir / ("conf_" + std::to_string(i)), "");
        put(dir / ("other_" + std::to_string(i)), "");
    }
    const auto files = [&] {
        return std::distance(fs::directory_iterator(dir / ""), fs::directory_iterator());
    };
    EXPECT_EQ(rotate_config((dir / "").c_str(), nullptr), NM_ERR_NULL_ARG);
    EXPECT_EQ(rotate_config(nullptr, "conf_"), NM_ERR_NULL_ARG);
    EXPECT_EQ(files(), 24) << "no family, nothing to delete";
    EXPECT_EQ(rotate_config((dir / "").c_str(), "conf_"), 0);
    EXPECT_EQ(files(), 22);
    EXPECT_FALSE(fs::exists(dir / "conf_11") || !fs::exists(dir / "conf_12"));
}

}  // namespace
