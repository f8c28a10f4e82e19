/** Ctrl-C and the request to end, as a flag that long work looks at. */
#ifndef TOOLS_INTERRUPT_H
#define TOOLS_INTERRUPT_H

/** Turn SIGINT and SIGTERM into the flag; a third one ends the process. A closed pipe is an error of write().
 */
void watch_for_interrupt();

/** Whether the user has asked to stop. Any thread. */
bool interrupted();

#endif
