#include "cli/delivery.h"

#include <chrono>
#include <functional>

#include "cli/radio_report.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds poll_interval{100};
/// When to say what a message that does not move waits for.
constexpr seconds explain_after{1};
constexpr seconds first_answer_limit{12};  // the driver looks at the radio's first answer 10 s after its start
constexpr seconds advise_after{20};

/// Tells a person, once each, why it takes so long.
class explainer_t {
  public:
    explainer_t(client::client_t& client, uint32_t id, const std::string& label, progress_t& progress)
        : client_(client), id_(id), label_(label), progress_(progress) {}

    void look(const std::vector<uint32_t>& statuses, const tally_t& tally) {
        note_radio_error(statuses);
        if (tally.sent != sent_) {
            since_ = steady_clock::now();
        }
        sent_ = tally.sent;
        previous_ = statuses;
        submitted_once_ = submitted_once_ || tally.queued < tally.total;
        const auto standing = steady_clock::now() - since_;
        if (!submitted_once_ && standing >= first_answer_limit) {
            once(&nothing_sent_told_,
                 [&] { return fmt::format("still nothing went to the radio{}; the driver goes on trying", reason()); });
        } else if (!submitted_once_ && standing >= explain_after) {
            once(&explained_, [&] { return why_it_waits(); });
        }
        if (standing >= advise_after) {
            once(&advised_, [&] {
                return fmt::format(
                    "no datagram was confirmed for {} s{}; the driver goes on trying. Ctrl-C ends this command, not "
                    "the "
                    "message: see it with 'zpd status {}'",
                    advise_after.count(), reason(), id_);
            });
        }
    }

  private:
    std::string why_it_waits() const {
        const std::string known = reason();
        if (const size_t others = count_others(); others != 0) {
            return fmt::format("waiting while {} is not sent{}; see: zpd list",
                               others == 1 ? "another message" : counted(others, "other message"), known);
        }
        return known.empty() ? "waiting for the driver to look at the network, up to 10 s after the service has started"
                             : "waiting" + known;
    }

    /// ": " and what the service knows of its modem; empty when nothing is known to hinder.
    std::string reason() const {
        const auto status = status_of_service(client_);
        const std::string known =
            status ? what_hinders(status->value("radio", nlohmann::ordered_json(nullptr))) : std::string();
        return known.empty() ? known : ": " + known;
    }

    /// The other messages that are with the driver and not sent.
    size_t count_others() const {
        const auto list = client_.list();
        size_t others = 0;
        for (const uint32_t id : list ? list->ids : std::vector<uint32_t>()) {
            if (id != id_) {
                const auto statuses = client_.status(id);
                others += statuses && !tally_of(*statuses).is_over() ? 1 : 0;
            }
        }
        return others;
    }

    /// A datagram that the radio could not send is queued again.
    void note_radio_error(const std::vector<uint32_t>& statuses) {
        for (size_t index = 0; index < statuses.size() && index < previous_.size(); ++index) {
            if (previous_[index] == ZPD_STATUS_SUBMITTED && statuses[index] == ZPD_STATUS_QUEUED) {
                once(&error_told_, [&] {
                    return fmt::format(
                        "a datagram did not go out{}; the driver tries again at once, and then every 5 s", reason());
                });
            }
        }
    }

    void once(bool* told, const std::function<std::string()>& text) {
        if (!*told) {
            progress_.note(fmt::format("{}: {}", label_, text()));
        }
        *told = true;
    }

    client::client_t& client_;
    uint32_t id_;
    const std::string& label_;
    progress_t& progress_;
    std::vector<uint32_t> previous_;
    size_t sent_ = 0;
    steady_clock::time_point since_ = steady_clock::now();
    bool submitted_once_ = false;
    bool explained_ = false;
    bool nothing_sent_told_ = false;
    bool advised_ = false;
    bool error_told_ = false;
};

std::string lost_text(const client::failure_t& failure) {
    if (failure.code == ZPD_ERROR_OUT_OF_RANGE) {
        return "the message was closed by somebody else";
    }
    return failure.text;
}

}  // namespace

tally_t tally_of(const std::vector<uint32_t>& statuses) {
    tally_t tally{.total = statuses.size()};
    for (const uint32_t status : statuses) {
        switch (status) {
            case ZPD_STATUS_QUEUED:
                ++tally.queued;
                break;
            case ZPD_STATUS_SUBMITTED:
                ++tally.submitted;
                break;
            case ZPD_STATUS_FAILED:
                ++tally.failed;
                break;
            case ZPD_STATUS_DEFERRED:
                ++tally.deferred;
                break;
            default:
                ++tally.sent;
        }
    }
    return tally;
}

std::string describe(const tally_t& tally) {
    std::string text = fmt::format("{} of {} sent", tally.sent, counted(tally.total, "datagram"));
    const std::pair<size_t, std::string_view> others[] = {{tally.submitted, "with the radio"},
                                                          {tally.queued, "queued"},
                                                          {tally.failed, "refused"},
                                                          {tally.deferred, "not sent because of that"}};
    for (const auto& [count, words] : others) {
        if (count != 0) {
            text += fmt::format(", {} {}", count, words);
        }
    }
    return text;
}

delivery_t watch_delivery(client::client_t& client, uint32_t id, const std::string& label, progress_t& progress,
                          const base::end_signals_t& signals) {
    explainer_t explainer(client, id, label, progress);
    delivery_t delivery;
    for (;;) {
        const auto statuses = client.status(id);
        if (!statuses) {
            delivery.end = delivery_t::end_t::lost;
            delivery.error = lost_text(statuses.failure());
            return delivery;
        }
        delivery.tally = tally_of(*statuses);
        if (delivery.tally.is_over()) {
            return delivery;
        }
        explainer.look(*statuses, delivery.tally);
        progress.show(fmt::format("{}: {}", label, describe(delivery.tally)));
        if (signals.wait(poll_interval.count())) {
            delivery.end = delivery_t::end_t::interrupted;
            return delivery;
        }
    }
}
