/** All choices of a run, from one seed. */
#ifndef SCRIPTS_WITNESS_HOST_RANDOM_H
#define SCRIPTS_WITNESS_HOST_RANDOM_H

#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

class Random
{
public:
    explicit Random(uint64_t seed) : m_engine(seed) {}

    /** @return a number below n, which is at least 1 */
    unsigned below(unsigned n) { return static_cast<unsigned>(m_engine() % n); }
    /** @return a number from low to high, both included */
    int between(int low, int high)
    {
        return low + static_cast<int>(below(static_cast<unsigned>(high - low + 1)));
    }
    bool chance(unsigned percent) { return below(100) < percent; }

    /** @return one of the values, of which there is at least one */
    template <typename Value>
    Value one_of(std::initializer_list<Value> values)
    {
        return values.begin()[below(static_cast<unsigned>(values.size()))];
    }
    template <typename Value>
    const Value& one_of(const std::vector<Value>& values)
    {
        return values[below(static_cast<unsigned>(values.size()))];
    }

private:
    std::mt19937_64 m_engine;
};

#endif
