// The configuration service as its callers meet it: a process on the bus.

#include "peers/bus/bus_exchange.h"
#include "sandbox_fixture.h"

namespace {

using namespace fixture;

const std::string kStore = "/var/run/network/store";
const std::string kDevice = kStore + "/ncaas.conf";
const std::string kDocument = kStore + "/doc.json";
const std::string kPath = "'path':'" + kDocument + "'";

/// Texts are written with ' for ".
struct Case {
    std::string method, request, reply;
};

void expect_replies(const std::vector<Case>& cases) {
    for (const auto& [method, request, expected] : cases) {
        std::string reply;
        EXPECT_EQ(nm::exchange("ncaas", method, quoted(request), 5, reply), 0) << method;
        EXPECT_NE(reply.find("\"error\":-1") != reply.npos, expected.find("'error':0") != reply.npos)
            << reply;
        EXPECT_THAT(reply, testing::StartsWith(quoted(expected))) << method << ' ' << request.substr(0, 100);
    }
}

class Ncaas : public testing::Test {
protected:
    void SetUp() override {
        put(kDevice, "model=VM\ndevid=42\nlocal_mgmt=1\nnote=a=b\n\nno pair\n");
        // Files end at 8 KiB, which stands for a full disk.
        run("(trap '' XFSZ; ulimit -f 16; exec ncaas -c " + kDevice +
            ") >/dev/null 2>&1 & echo $! >/run/ncaas.pid; timeout 5 sh -c "
            "'until [ -S /var/run/vservice/ncaas.sock ]; do sleep 0.01; done'");
    }
    void TearDown() override {
        run("kill $(cat /run/ncaas.pid); timeout 5 sh -c "
            "'while [ -S /var/run/vservice/ncaas.sock ]; do sleep 0.01; done'");
        fs::remove_all(kStore);
    }
};

TEST_F(Ncaas, DeviceFactsFollowTheirFile) {
    put(kDevice, "model=KERO_201\ndevid=4x\n");
    expect_replies({{"get_model", "", "{'data':'KERO_201','error':0}\n"},
                    {"get_devid", "", "{'data':'devid is no number"},
                    {"get_local_mgmt", "", "{'data':'local_mgmt is not set"}});
}

TEST_F(Ncaas, DocumentsAreReplacedWholeOrNotAtAll) {
    const std::string document = R"({"A":{"b":["1",2,true,null]},"q":"`$\\\";é"})";
    put(kDocument, "old");
    fs::permissions(kDocument, fs::perms(0600));
    expect_replies({{"write_json", "{" + kPath + ",'data':" + document + "}", "{'data':'','error':0}\n"},
                    {"read_json", "{" + kPath + "}", "{'data':" + document + ",'error':0}\n"},
                    {"sync_file", "{" + kPath + "}", "{'data':'','error':0}\n"},
                    {"read_ini", "{'path':'" + kDevice + "'}",
                     "{'data':{'devid':'42','local_mgmt':'1','model':'VM','note':'a=b'},'error':0}"},
                    {"write_json", "{" + kPath + ",'data':'" + std::string(20000, 'x') + "'}",
                     "{'data':'" + kDocument + " cannot be written"}});
    EXPECT_EQ(slurp(kDocument), document + '\n') << "a failed write touched the document";
    EXPECT_EQ(std::distance(fs::directory_iterator(kStore), {}), 2) << "a failed write left a file behind";
    EXPECT_EQ(fs::status(kDocument).permissions(), fs::perms(0600));
}

TEST_F(Ncaas, RequestsOutsideTheStoreAreRefused) {
    std::vector<Case> cases{{"read_json", "", "{'data':'the request names no path"},
                            {"read_json", "{", "{'data':'not valid JSON"},
                            {"read_json", std::string(100000, '['), "{'data':"},
                            {"write_json", "{" + kPath + "}", "{'data':'the request holds no data"},
                            {"no_such_method", "", "{'error':-1,'data':'unknown method no_such_method'}"}};
    for (const std::string path :
         {"/var/run/network/../outside", "/var/run/network/", "/etc/networkmanagement/..",
          "/var/run/networkx/a", "/var/run/network/a\\nb"}) {
        for (const char* method : {"read_json", "read_ini", "sync_file", "write_json"}) {
            cases.push_back({method, "{'data':1,'path':'" + path + "'}", "{'data':'path is not served"});
        }
    }
    expect_replies(cases);
    EXPECT_FALSE(fs::exists("/var/run/outside"));
}

}  // namespace
