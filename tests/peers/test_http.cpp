// HTTP calls against a server on loopback, and the calls to services of the bus beside them.
#include <malloc.h>

#include <atomic>
#include <chrono>

#include "fake_service.h"
#include "networkinterface.h"
#include "sandbox_fixture.h"
#include "scripted_listener.h"

/// Known where the sanitizers keep the heap, which mallinfo2() knows nothing of then.
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

namespace fs = std::filesystem;
using fixture::hear;
using testing::HasSubstr;

/// Serves a status by path, except for "/stall", which is never answered, and the first "/flaky", which is
/// answered by half. An upload has to end with "end-of-body".
struct Server {
    std::string at(const std::string& path, const std::string& login = "") const {
        return "http://" + login + "127.0.0.1:" + listener.port + path;
    }
    void answer(int client) {
        request = hear(client, "\r\n\r\n");
        const bool is_get = request.rfind("GET ", 0) == 0;
        request += is_get ? "" : hear(client, "end-of-body");
        if (request.rfind("GET /stall", 0) == 0) {
            hear(client, "never");
            return;
        }
        const bool is_half = request.rfind("GET /flaky", 0) == 0 && ++flaky == 1;
        const std::string status = request.rfind("GET /500", 0) == 0 ? "500 Broken" : "200 OK";
        fixture::say(client, "HTTP/1.1 " + status + "\r\nContent-Length: 10\r\n\r\n" +
                                 (is_half ? "half" : "whole-body"));
    }
    std::string request;
    int flaky = 0;
    fixture::Listener listener{[this](int client) { answer(client); }};
};

/// The first test: what has been loaded stays.
TEST(Http, WorksOnceItsLibraryIsThere) {
    const Server server;
    const fixture::LogTail log;
    std::string response;
    for (const auto& dir : fs::directory_iterator("/usr/lib")) {
        const fs::path library = dir.path() / "libcurl.so.4";
        if (fs::exists(library)) {
            fs::rename(library, dir.path() / "hidden");
            EXPECT_EQ(nm_curl_get(server.at("/200"), response, 5, 1, 1), NM_ERR_HTTP_INIT);
            EXPECT_EQ(nm_curl_perform(nullptr, 1, 1), CURLE_FAILED_INIT);
            fs::rename(dir.path() / "hidden", library);
        }
    }
    EXPECT_TRUE(log.has("libcurl.so.4 cannot be loaded: libcurl.so.4: "));
    EXPECT_EQ(nm_curl_get(server.at("/200"), response, 5, 1, 1), 0);
}

TEST(Http, ThousandCallsLeaveNothing) {
    const Server server;
    const auto kept = [] {
        const bool sanitized = __sanitizer_get_current_allocated_bytes != nullptr;
        return sanitized ? __sanitizer_get_current_allocated_bytes() : mallinfo2().uordblks;
    };
    std::string response;
    std::size_t bytes = 0;
    std::ptrdiff_t descriptors = 0;
    for (int call = 0; call <= 1000; ++call) {
        (void)nm_curl_get(server.at("/200"), response, 5, 1, 1);
        (void)nm_curl_post(call % 2 == 0 ? "http://127.0.0.1:1/" : server.at("/x"), "end-of-body", 5, 1, 1,
                           response);
        bytes = call == 100 ? kept() : bytes;
        descriptors = call == 100 ? fixture::open_descriptors() : descriptors;
    }
    EXPECT_LT(kept(), bytes + 4096);  // 900 calls of even 5 bytes each are more
    EXPECT_LE(fixture::open_descriptors(), descriptors + 2)
        << "but for connections that the server is about to close";
}

TEST(Http, AnswersRetriesAndLimits) {
    const Server server;
    struct Case {
        std::string url;
        int timeout;
        unsigned short tries;
        unsigned short delay;
        int code;
        double seconds;  // at least, and less than one more
    };
    const std::vector<Case> cases{
        {server.at("/200"), 5, 1, 1, 0, 0},
        {server.at("/500"), 5, 3, 1, 0, 0},
        {server.at("/flaky"), 5, 2, 1, 0, 1},
        {server.at("/stall"), 1, 1, 1, NM_ERR_HTTP_TRANSFER, 0.95},
        {"http://127.0.0.1:1/", 5, 3, 1, NM_ERR_HTTP_TRANSFER, 2},
        {"http://127.0.0.1:1/", 5, 2, 0, NM_ERR_HTTP_TRANSFER, 3},
        {server.at("/200"), -1, 1, 1, NM_ERR_HTTP_TRANSFER, 0},
        {"file:///etc/hostname", 5, 1, 1, NM_ERR_HTTP_TRANSFER, 0},
        {server.at("/2\n00"), 5, 1, 1, NM_ERR_HTTP_TRANSFER, 0},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.url);
        std::string response = "before";
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(nm_curl_get(row.url, response, row.timeout, row.tries, row.delay), row.code);
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(spent.count(), row.seconds);
        EXPECT_LT(spent.count(), row.seconds + 1);
        EXPECT_EQ(response, row.code == 0 ? "whole-body" : "before");
    }
}

TEST(Http, UploadsCarryBodyAndTypeAndLogsNoSecret) {
    const Server server;
    const fixture::LogTail log;
    const std::string body = std::string("{\"a\":\"\0\"}", 9) + "end-of-body";
    for (const auto& [call, method] :
         {std::pair(nm_curl_put, "PUT /x?"), std::pair(nm_curl_post, "POST /x?")}) {
        std::string response;
        EXPECT_EQ(call(server.at("/x?token=hush2", "me:hush1@"), body, 5, 1, 1, response), 0);
        EXPECT_EQ(server.request.rfind(method, 0), 0U);
        EXPECT_THAT(server.request, HasSubstr("Content-Type:application/json;charset=UTF-8\r\n"));
        EXPECT_THAT(server.request, HasSubstr("\r\n\r\n" + body));
        EXPECT_EQ(response, "whole-body");
    }
    EXPECT_TRUE(log.has("url = " + server.at("/x")));
    EXPECT_TRUE(log.has("response_code = 200"));
    EXPECT_FALSE(log.has("hush"));
}

TEST(ApplianceServices, AreAskedAndTheirAnswersUnderstood) {
    const fixture::FakeService grpc("nm-grpc-handler", {{"DeviceLog", "{}"}});
    const fixture::FakeService das("das", {{"apply_devid_mgmt", R"({"error":-5})"}});
    const fixture::FakeService velan("VelanWsd.service", {{"Setup_vbelt_server", "{}"}});
    const fixture::FakeService hmgr("nm-hmgr", {{"UpdateLansInfo", "[]"}});
    std::string port = "PORT\"12";
    pppoe_dial_log(port, 255);
    EXPECT_EQ(setup_velan_deamons("1", "77"), -5);
    EXPECT_EQ(Setup_vbelt_server("local_vbelt", "/p", 1), 0);
    EXPECT_EQ(update_network_info(5), NM_ERR_PARSE);
    const char* const dial_log =
        R"(nm-grpc-handler.DeviceLog \{"msg_id":255,"timestamp":[0-9]+,"values":\["\\"12"\]\})";
    EXPECT_THAT(
        fixture::FakeService::take_calls(),
        testing::ElementsAre(
            testing::ContainsRegex(dial_log), R"(das.apply_devid_mgmt {"dev_id":"77","local_mgmt":"1"})",
            R"(VelanWsd.service.Setup_vbelt_server {"force":1,"path":"/p","type":"local_vbelt"})",
            "nm-hmgr.UpdateLansInfo {}"));
    EXPECT_FALSE(is_license_expired()) << "no service, no expiry";
    for (const auto& [answer, is_yes] : std::map<std::string, bool>{
             {"true", true}, {"1", true}, {R"("1")", true}, {"0", false}, {"[1]", false}}) {
        const fixture::FakeService ncaas("ncaas", {{"get_local_mgmt", R"({"data":)" + answer + "}"},
                                                   {"get_devid", R"({"data":)" + answer + "}"}});
        const fixture::FakeService license("license",
                                           {{"GetLicenseInfo", R"({"data":{"expired":)" + answer + "}}"}});
        EXPECT_EQ(is_local_mgmt(), is_yes) << answer;
        EXPECT_EQ(is_license_expired(), is_yes) << answer;
        EXPECT_EQ(get_device_id(), answer == "1" ? 1 : 0);
    }
}

TEST(DirectCalls, TellOfFailuresAndReturn) {
    const fixture::LogTail log;
    sync_file("/absent");
    EXPECT_TRUE(log.has("vs_call ncaas.sync_file path=/absent failed"));
    const fixture::FakeService ncaas("ncaas", {{"read_ini", R"({"error":3,"data":"why"})"},
                                               {"read_json", R"({"error":4,"data":{}})"},
                                               {"sync_file", R"({"PASSWORD":"secret")"}});
    testing::internal::CaptureStdout();
    read_ini("/p");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Get error: why");
    read_json("/p");
    sync_file("/p");
    EXPECT_TRUE(log.has("Get error: {}") && log.has("raw data: {\"PASSWORD\"... (20 bytes)") &&
                !log.has("secret") && !log.has("Get error: why"));
    EXPECT_EQ(fixture::FakeService::take_calls().front(), R"(ncaas.read_ini {"path": "/p"})");
}

}  // namespace
