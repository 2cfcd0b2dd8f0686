/*
 * Tracing of a running process: the memory that each place of the source has taken and not given
 * back, and the traffic that a host reports under each of its codes.
 *
 * Both tracers follow sarn.ini in the working folder, which their monitor threads read anew in
 * every cycle, and report to the event log.  A monitor opens the logs that sarn.ini names before
 * its first cycle, as init_logs does with the tracer's tag for the mark ("MEMM", "TRAF"); from then
 * on the folder of the process's executable is the working folder.  A cycle that raises leaves a
 * line and ends its monitor; shut down and start anew then.
 *
 * Once a monitor has been started the library stays in the process, whatever its host unloads.  At
 * the end of the process a monitor that runs is stopped, which takes up to a second; on Windows the
 * system has ended it before, and nothing waits.
 */
#ifndef VDREADER_TRACING_H
#define VDREADER_TRACING_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Starts the monitor of the blocks that go through memtrace.h; a second call while it runs does
 * nothing.  Section "mem_trace": "enable" (1: on, any other value: off), "mem_limit" (bytes of the
 * tracer's own tables, 200000000; 0: none), "period" (seconds between reports, 60; 0 and below:
 * they follow each other at once).  Where no thread can start, std::system_error with
 * resource_unavailable_try_again; the next call tries again behind MemTraceShutDown.  Any thread.
 *
 * While tracing is on, the entry points raise std::bad_alloc where their entry finds no memory;
 * memtrace.h tells what becomes of the blocks. */
VDREADER_API void MemTraceInit(void);

/* Stops the monitor, if there is one, and waits for its present cycle, about a second at most.
 * Tracing itself stays as it is: what was on goes on entering blocks, without a limit.  Any
 * thread. */
VDREADER_API void MemTraceShutDown(void);

/* Starts the monitor of the traffic; a second call while it runs does nothing.  Section
 * "traffic_trace": "enable" (a number, not 0: on), "period" (seconds, 600).  The first call of a
 * process switches tracing at once, later ones leave that to the monitor.  Where no thread can
 * start, std::system_error with resource_unavailable_try_again; std::runtime_error "Read ini file
 * error. File..."; the next call tries again.  Any thread. */
VDREADER_API void TrafficTraceInit(void);

/* Stops the monitor, if there is one, and waits for its present cycle, about a second at most.
 * Tracing itself stays as it is: sums go on, and the first report of a later monitor has them.  Any
 * thread. */
VDREADER_API void TrafficTraceShutDown(void);

/* Adds `bytes` to the code's sum of the running period, incoming or outgoing; one read of a byte
 * while tracing is off.  What the codes stand for is the host's affair.  std::bad_alloc for the
 * first bytes of a code.  Any thread. */
VDREADER_API void TrafficTrace(uint16_t code, size_t bytes, bool incoming);

#ifdef __cplusplus
}
#endif

#endif
