/** What a test has scripted (faults, free space, listing) and how often each call came. For any thread. */
#ifndef HOSTCARD_SCRIPT_H
#define HOSTCARD_SCRIPT_H

#include <cstddef>
#include <string>

#include "hostcard/hostcard.h"

namespace hostcard
{

/** Count a use of a call. @return whether it is to fail; errno is then set */
bool fails(hostcard_call call);

/** Count a read or write. @param count  bytes wanted, halved by a short fault. @return as fails() */
bool fails(hostcard_call call, std::size_t& count);

/** Free bytes that statfs is to report; negative: the truth. */
long long scripted_free_bytes();

/** Names that /dev/hd/ is to list. @param actual  those that the card has */
std::string scripted_listing(const std::string& actual);

/** Begin to count at 0. */
void reset_counts();

/** Return to what holds without a script. */
void forget_script();

} // namespace hostcard

#endif
