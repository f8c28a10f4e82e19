#ifndef IFS_UTIL_SHARED_WORD_H
#define IFS_UTIL_SHARED_WORD_H

/*
 * Words that several threads read and write without a lock: the exported flags, which must stay plain words
 * for hosts, and counters that a query may look at while a frame is written. Relaxed: a reader may be late.
 */
template <typename Word>
Word Load_shared(const Word& word)
{
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <typename Word>
void Store_shared(Word& word, Word value)
{
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

#endif
