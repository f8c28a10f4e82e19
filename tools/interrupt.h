/** Ctrl-C, the request to end and the end of the terminal, as a flag that long work looks at. */
#ifndef TOOLS_INTERRUPT_H
#define TOOLS_INTERRUPT_H

/**
 * Turn SIGINT, SIGTERM and SIGHUP into the flag; a third one ends the process. SIGHUP stays ignored where it
 * is. A closed pipe is an error of write().
 */
void watch_for_interrupt();

/** Whether the user has asked to stop. Any thread. */
bool interrupted();

#endif
