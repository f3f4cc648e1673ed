// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/HostLookup.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>

#include "protocol/NameQuery.h"

namespace veltra {

namespace {

using std::chrono::steady_clock;

/** Look-ups that were given up. The system still writes its results into them, and only then can they be freed. */
class AbandonedQueries
{
public:
    static constexpr std::size_t kMaximum = 16;

    ~AbandonedQueries()
    {
        freeFinished();

        for (auto& query : queries)
            query.release(); // when the module goes before the name server answers
    }

    /** @returns false while too many look-ups hang to begin another */
    bool roomForMore()
    {
        const std::lock_guard guard (mutex);
        freeFinished();
        return queries.size() < kMaximum;
    }

    void add (std::unique_ptr<NameQuery> query)
    {
        const std::lock_guard guard (mutex);
        queries.push_back (std::move (query));
    }

private:
    void freeFinished()
    {
        std::erase_if (queries, [] (const auto& query) { return query->waitForEnd (std::chrono::nanoseconds (0)); });
    }

    std::mutex mutex;
    std::vector<std::unique_ptr<NameQuery>> queries;
};

AbandonedQueries& abandonedQueries()
{
    static AbandonedQueries queries;
    return queries;
}

/** @returns whether it has ended before the deadline */
bool waitForEnd (NameQuery& query, steady_clock::time_point deadline, const std::function<bool()>& shouldStop)
{
    while (! query.waitForEnd (std::chrono::nanoseconds (0)))
    {
        const auto left = deadline - steady_clock::now();

        if (left <= left.zero() || shouldStop())
            return false;

        query.waitForEnd (std::min<std::chrono::nanoseconds> (left, std::chrono::milliseconds (50)));
    }

    return true;
}

}

std::vector<std::string> lookUpHost (const std::string& name, steady_clock::time_point deadline,
                                     const std::function<bool()>& shouldStop)
{
    if (NameQuery::isNumber (name))
        return { name };

    if (! abandonedQueries().roomForMore())
        return {};

    auto query = std::make_unique<NameQuery> (name);

    if (! waitForEnd (*query, deadline, shouldStop))
    {
        query->cancel();

        if (! query->waitForEnd (std::chrono::nanoseconds (0)))
        {
            abandonedQueries().add (std::move (query));
            return {};
        }
    }

    return query->addresses();
}

}
