// The trace of a request: it is worked here, and where its time goes is reported.
#pragma once

#include <json/value.h>

#include <functional>

#pragma GCC visibility push(default)

/// Works `request` on this device, in a child process whose output is that of this one, and reports every
/// step (nm_step_watch of utils/call_watch.h) with its time. However the child ends, the report goes as far
/// as it came. A signal that asks this process to end (SIGHUP, SIGINT, SIGQUIT, SIGTERM) is handed on to the
/// child; the child is killed if this process is.
///
/// What `request` changes in memory is lost. This process should have no other thread.
///
/// `report` becomes an object (trace.json in /usr/share/networkmanagement/schema/): `answer`, the `code` that
/// the request returned or the `signal` that ended it; `traceEvents` with `displayTimeUnit`, which viewers of
/// the trace-event format open: a complete event for each step, and for each time that a lock was held one on
/// a track of its own; `times`, where the time went, by category and in the longest steps; `locks`;
/// `dropped`, how many steps did not fit (50,000 do). Secrets are masked, those of stored documents and of
/// documents that the request has loaded.
///
/// 0, whatever the answer is; NM_ERR_NULL_ARG without a request; NM_ERR_SERVICE if no child could be made,
/// and the request has not been worked: `reason` of the report says why, and it has no other member.
int trace_request(const std::function<int()>& request, Json::Value& report);

#pragma GCC visibility pop
