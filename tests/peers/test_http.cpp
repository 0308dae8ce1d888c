// HTTP calls against a server on loopback, and the calls to services of the bus beside them.
#include <gmock/gmock.h>

#include <chrono>

#include "fake_service.h"
#include "peers/appliance_services.h"
#include "peers/device_log.h"
#include "peers/http.h"
#include "peers/service_bus.h"
#include "result_codes.h"
#include "sandbox_fixture.h"
#include "scripted_listener.h"

namespace {

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
    const auto descriptors = fixture::open_descriptors();
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
    EXPECT_EQ(fixture::open_descriptors(), descriptors);
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
    for (const auto& [answer, is_yes] : std::map<std::string, bool>{
             {"true", true}, {"1", true}, {R"("1")", true}, {"0", false}, {"[1]", false}}) {
        const fixture::FakeService ncaas("ncaas", {{"get_local_mgmt", R"({"data":)" + answer + "}"},
                                                   {"get_devid", R"({"data":)" + answer + "}"}});
        EXPECT_EQ(is_local_mgmt(), is_yes) << answer;
        EXPECT_EQ(get_device_id(), answer == "1" ? 1 : 0);
    }
}

}  // namespace
