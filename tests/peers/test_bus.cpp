// Calls of a request over the bus: services that do not answer, and replies that are too much.

#include "fake_service.h"
#include "peers/bus/bus_exchange.h"
#include "peers/bus/request_waits.h"
#include "sandbox_fixture.h"
#include "scripted_listener.h"

namespace {

using namespace fixture;
using std::chrono::seconds;

/// The code of a call and how many whole seconds it took.
std::pair<int, int> timed_call(const std::string& service, int limit) {
    std::string reply;
    const auto start = std::chrono::steady_clock::now();
    const int ret = nm::exchange(service, "ask", "{}", limit, reply);
    const auto took = std::chrono::steady_clock::now() - start;
    return {ret, static_cast<int>(std::chrono::duration_cast<seconds>(took).count())};
}

TEST(RequestWaits, ForServicesThatDoNotAnswerHaveABound) {
    const FakeService fine("fine", {{"ask", "{}"}});
    const auto stall = [](int client) { hear(client, "never"); };
    const std::string directory = "/var/run/vservice/";
    const Listener first(stall, directory + "first.sock"), second(stall, directory + "second.sock"),
        third(stall, directory + "third.sock");
    const LogTail log;
    const std::tuple<std::string, int, int, int> calls[] = {{"first", 2, NM_ERR_BUS_CALL, 2},
                                                            {"first", 60, NM_ERR_BUS_CALL, 0},
                                                            {"fine", 60, 0, 0},
                                                            {"absent", 60, NM_ERR_BUS_CALL, 0},
                                                            {"absent", 60, NM_ERR_BUS_CALL, 0},
                                                            {"second", 60, NM_ERR_BUS_CALL, 3},
                                                            {"third", 60, NM_ERR_BUS_CALL, 1},
                                                            {"fine", 60, 0, 0}};
    {
        const nm::RequestWaits request(seconds(3));
        for (const auto& [service, limit, code, took] : calls) {
            const nm::RequestWaits inner;
            EXPECT_EQ(timed_call(service, limit), std::pair(code, took)) << service << limit;
        }
    }
    EXPECT_TRUE(log.has("first has let this request wait in vain, so ask is not called."));
    EXPECT_FALSE(log.has("absent has let")) << "nothing was waited for";
    EXPECT_EQ(timed_call("first", 1).second, 1) << "the next request asks again";
}

TEST(Exchange, RefusesRepliesThatCostTooMuch) {
    const auto array = [](std::size_t values) {
        std::string text = R"({"pad":",[{\",","data":[)";
        for (std::size_t i = 3; i < values; ++i) {
            text += "0,";
        }
        return text + "0]}";
    };
    const FakeService service("large", {{"many", array(1 << 20)},
                                        {"too_many", array((1 << 20) + 1)},
                                        {"long", "\"" + std::string((16 << 20) - 2, ',') + "\""},
                                        {"too_long", std::string((16 << 20) + 1, ' ')}});
    const LogTail log;
    for (const auto& [method, code] :
         {std::pair("many", 0), {"long", 0}, {"too_many", NM_ERR_BUS_CALL}, {"too_long", NM_ERR_BUS_CALL}}) {
        std::string reply = "untouched";
        EXPECT_EQ(nm::exchange("large", method, "", 5, reply), code) << method;
        EXPECT_EQ(reply == "untouched", code != 0) << method;
    }
    EXPECT_TRUE(log.has("large.too_many answered too much, "));
}

}  // namespace
