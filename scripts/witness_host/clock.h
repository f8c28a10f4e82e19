/**
 * The process's clock, which stands, and the sleeps of the library's workers, which the run ends one by one:
 * so a worker works at known places of the run, and the run waits for it.
 */
#ifndef SCRIPTS_WITNESS_HOST_CLOCK_H
#define SCRIPTS_WITNESS_HOST_CLOCK_H

/** What time() returns: 2026-05-09 12:00:00 UTC. */
constexpr long now_s = 1778328000;

/** A worker was started: wait until it sleeps. Called by the main thread, as is tick(). */
void worker_started();

/** Wake the worker that sleeps longest and wait until it sleeps again. Without workers nothing happens. */
void tick();

#endif
