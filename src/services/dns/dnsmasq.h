// The dnsmasq that answers this device's and its clients' name queries. The service `DnsmasqMgr` runs it;
// here it is only asked to begin anew with the files that were changed.
#pragma once

#pragma GCC visibility push(default)

/// Has dnsmasq restarted, within 60 seconds. Does nothing before the end of the boot
/// (/var/run/network/.boot_fin), when dnsmasq is started on the finished files anyway. A failure is logged
/// only: the files are changed, whatever becomes of the restart.
void restart_dnsmasq();

#pragma GCC visibility pop
