#pragma once

#include "Utilities/Watch/Clock.h"
#include "Utilities/Watch/Picture.h"
#include "Utilities/Watch/ShellLink.h"

#include <boost/asio/io_context.hpp>

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace watch {

/// Schedules the requests for the module's listings.
///
/// The module logs each command and each listing, so reading every second would fill its log. A log line that is no
/// listing causes a new picture at once and two more within the next seconds; while a patch awaits its answer or a
/// clock its lock there is one a second. Otherwise there is one every refresh period. The clocks change without a log
/// line: their two short listings are read more often while a page is open. There is never more than one round a
/// second, none without an open page or a recent scrape, and the bytes that listings add to the log stay within a
/// budget.
class Poller
{
public:
    struct Settings
    {
        std::chrono::milliseconds refresh;
        /// Between two readings of the clocks while a page is open, once it has been open for longer than `attention`;
        /// before that they are read each second.
        std::chrono::milliseconds clocks{5000};
        std::chrono::milliseconds attention{600000};
        /// How long a request counts as interest: longer than the usual pause between two scrapes.
        std::chrono::milliseconds interest{90000};
        /// Bytes that listings may add to the module's log at once, and each second.
        double logBurst = 512 * 1024;
        double logRate = 2048;
        /// How long a listing may take, and then an answer of any kind.
        std::chrono::milliseconds replyPatience{2000};
        std::chrono::milliseconds silencePatience{5000};
    };

    Poller(boost::asio::io_context& context, boost::asio::ip::tcp::endpoint shell, Picture& picture, Settings settings);

    void Start() { mLink.Start(); }

    /// A single request, such as a scrape.
    void OnLook();
    /// An open page: counts until the returned token is destroyed.
    std::shared_ptr<void> Watch();
    /// Calls back once the picture is up to date: at once, or after a short wait.
    void WhenFresh(std::function<void()> callback);

    /// Called after each change of the picture.
    void SetChanged(std::function<void()> changed) { mChanged = std::move(changed); }
    /// Listings in flight, 0 or 1.
    std::size_t ListingsUnderway() const { return mRound.has_value(); }

private:
    struct Round
    {
        bool clocksOnly;
        std::size_t next;
        std::size_t loggedBytes = 0;
        /// Information is off: listings that come by the log are omitted.
        bool directOnly = false;
    };

    bool IsLookedAt() const;
    bool IsFresh() const;
    void OnMessage(LogMessage message);
    void OnReady();
    void OnLost();
    void OnReply(const Reply& reply);
    void OnNoReply();
    void Schedule();
    std::optional<Clock::time_point> NextPicture() const;
    std::optional<Clock::time_point> NextClocks() const;
    void StartRound(bool clocksOnly);
    void AskNext();
    void EndRound();
    void AwaitReply(std::chrono::milliseconds patience);
    void CallWaiters();
    void Refill();

    boost::asio::io_context& mContext;
    Picture& mPicture;
    const Settings mSettings;
    ShellLink mLink;
    Timer mRoundTimer;
    Timer mReplyTimer;
    Timer mWaitTimer;
    std::function<void()> mChanged = [] {};
    std::optional<Round> mRound;
    /// Starts of the last picture and of the last round of either kind.
    std::optional<Clock::time_point> mLastPicture;
    std::optional<Clock::time_point> mLastRound;
    Clock::time_point mLastHint{};
    Clock::time_point mLookedUntil{};
    Clock::time_point mOpened{};
    std::weak_ptr<void> mWatchers;
    std::set<ShellCommand> mLong;
    double mBudget;
    Clock::time_point mRefilled = Clock::now();
    bool mProbing = false;
    std::vector<std::function<void()>> mWaiters;
};

} // namespace watch
