// Calls to the appliance's other services over the service bus: synchronous, JSON text both ways. A reply
// is an envelope, an object with `error` (integer) and `data`.
#pragma once

#include <string>

#pragma GCC visibility push(default)

/// Calls `method` of `service` with the text `input` and waits up to 60 seconds, within a request no longer
/// than its patience lasts: 90 seconds in all, besides a second for each call; a service that has let a call
/// of the request run out of time is not called again. `output` takes the `data` of the envelope as compact
/// JSON text, empty if there is none. 0; NM_ERR_BUS_IO; NM_ERR_BUS_CALL; NM_ERR_PARSE for a reply that is no
/// envelope; otherwise the envelope's `error`. `flag` is not used.
int vservice_call(std::string service, std::string method, std::string& input, std::string& output,
                  bool flag);

/// Ask `ncaas` for a file, with a limit of 5 seconds; failures are logged (read_ini() writes the service's
/// own error to standard output). `path` goes into the request as it is.
void read_ini(std::string path);
void read_json(std::string path);

/// Asks `ncaas` to make the file at `path` current, with a limit of 5 seconds. A failure is logged only: the
/// local copy is as good as it was.
void sync_file(std::string path);

/// The device's id from `ncaas`; 0 on any failure, which is also the id of a device that has none.
int get_device_id();

/// The model string from `ncaas` into `model`, untouched on failure. 0, or the code of the call;
/// NM_ERR_PARSE if the reply is not text.
int get_model(std::string& model);

#pragma GCC visibility pop
