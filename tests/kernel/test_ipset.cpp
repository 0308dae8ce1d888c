// Edits of sets in a run over what is there already: a member that is exactly there is left alone, and no
// other.
#include "kernel/ipset.h"
#include "kernel_world.h"
#include "stand_in.h"
#include "utils/run_scope.h"

using namespace kernel_world;

namespace {

struct Sets : Frugal {
    void SetUp() override {
        run("set -e; ipset restore <<-'END'\n"
            "create nw_ip hash:ip\nadd nw_ip 10.0.0.1\ncreate nw_ip6 hash:ip family inet6\nadd nw_ip6 "
            "2001:db8::1\n"
            "create nw_net hash:net\nadd nw_net 10.1.0.0/16\nadd nw_net 10.9.0.0/24 nomatch\n"
            "create nw_iface hash:net,iface\nadd nw_iface 10.2.0.0/24,nw0\nadd nw_iface 10.3.0.1,nw0\n"
            "create nw_ages hash:ip timeout 100\nadd nw_ages 10.0.0.1\n"
            "create nw_list list:set\nadd nw_list nw_ip6\nadd nw_list nw_net\nEND");
    }
    void TearDown() override { run("for s in list ip ip6 net iface ages; do ipset destroy nw_$s; done"); }
};

TEST_F(Sets, WhatARunFindsIsNotAddedAgain) {
    const StandIn script("/usr/sbin/firewall.sh");
    const std::string added = "firewall.sh <edit_ipset> <add> ";
    struct Case {
        const char* set;
        const char* member;
        bool is_there;
    };
    const Case cases[] = {
        {"nw_ip", "10.0.0.1", true},
        {"nw_ip", "10.0.0.2", false},
        {"nw_ip", "host", false},
        {"nw_ip6", "2001:db8:0::1", true},
        {"nw_net", "10.1.0.0/16", true},
        {"nw_net", "10.1.0.0/24", false},  // in a wider one, which may go
        {"nw_net", "10.1.0.1", false},
        {"nw_net", "10.9.0.0/24", false},  // an exception
        {"nw_iface", "10.2.0.0/24,nw0", true},
        {"nw_iface", "10.3.0.1,nw0", true},
        {"nw_iface", "10.2.0.0/24,nw1", false},
        {"nw_iface", "10.2.0.0/24", false},
        {"nw_iface", "10.2.0.1,nw0", false},
        {"nw_ages", "10.0.0.1", false},  // to add it lets it begin anew
        {"nw_list", "10.1.0.0/16", true},
        {"nw_list", "2001:db8::1", true},
        {"nw_list", "10.0.0.1", false},
        {"nw_none", "10.0.0.1", false},
        {"a_name_of_more_bytes_than_a_set_can_have", "10.0.0.1", false},
    };
    for (const auto& [set, member, is_there] : cases) {
        const std::string call = added + "<" + set + "> <" + member + ">\n";
        const auto in_run = [&, set = set, member = member] {
            const nm::RunScope run;
            return edit_ipset("add", set, member);
        };
        EXPECT_EQ(in_run(), 0);
        EXPECT_EQ(StandIn::take(), is_there ? "" : call);
        EXPECT_EQ(without(its_sockets, in_run), 0);
        EXPECT_EQ(StandIn::take(), call) << "what cannot be looked at is added";
        EXPECT_EQ(edit_ipset("add", set, member), 0);
        EXPECT_EQ(StandIn::take(), call) << "a request of its own always runs the script";
    }
    const nm::RunScope run;
    EXPECT_EQ(edit_ipset("del", "nw_ip", "10.0.0.1"), 0);
    EXPECT_EQ(StandIn::take(), "firewall.sh <edit_ipset> <del> <nw_ip> <10.0.0.1>\n");
}

}  // namespace
