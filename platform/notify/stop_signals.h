// How the manager of services, or a terminal, ends a daemon of the bus.
#pragma once

#include <vservice.h>

/// From now on SIGTERM and SIGINT stop this server, whose run then ends; null before it is freed: later ones
/// do nothing.
void stop_on_signals(vs_server* server);
