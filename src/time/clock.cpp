// The clock: calendar time taken as UTC, whether the clock can be trusted, the uptime.

#include <utils_ozu/dates.h>

#include <base/log.h>
#include <base/panel_state.h>
#include <base/panel_width.h>
#include <base/unique_fd.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr const char *kZoneVariable = "TZ";
constexpr std::size_t kZonePrefix = 3; // "TZ="
constexpr int kEarliestPlausible = 400000000;
constexpr int kLastYearBeforeSync = 2020;

// Sets the process to UTC and back. Fails when memory runs out, and then changes nothing.
class UtcInterlude {
  public:
    UtcInterlude() noexcept : current_(getenv(kZoneVariable)) {
        if (current_ != nullptr) {
            saved_ = strdup(current_);
            if (saved_ == nullptr) {
                return;
            }
        }
        active_ = setenv(kZoneVariable, "", 1) == 0;
        if (active_) {
            tzset();
        }
    }
    ~UtcInterlude() {
        if (active_) {
            restore();
        }
        free(saved_);
        if (active_) {
            tzset();
        }
    }
    UtcInterlude(const UtcInterlude &) = delete;
    UtcInterlude &operator=(const UtcInterlude &) = delete;

    [[nodiscard]] bool active() const noexcept { return active_; }

  private:
    void restore() const noexcept {
        if (saved_ == nullptr) {
            unsetenv(kZoneVariable);
        } else if (setenv(kZoneVariable, saved_, 1) != 0) {
            // Puts the former entry of the environment back, which takes no memory.
            static_cast<void>(putenv(current_ - kZonePrefix));
        }
    }
    char *current_;
    char *saved_ = nullptr;
    bool active_ = false;
};

} // namespace

int ozuutils_timegm_to_epoch(struct tm *utc) noexcept {
    tm time = *utc;
    int seconds = -1;
    {
        const UtcInterlude interlude;
        seconds = ozu::panelTime(interlude.active() ? mktime(&time) : timegm(&time));
    }
    // What has no result stays as it came, on machines that could bring it into range, too.
    if (seconds != -1) {
        *utc = time;
    }
    return seconds;
}

unsigned int ozuutils_isSystemTimeOk(int now) noexcept {
    const PanelSharedState *state = ozu::panelState();
    if (state != nullptr && ozu::readOnce(state->timeSourceFlagA) == 0 &&
        ozu::readOnce(state->timeSourceFlagB) == 0) {
        return 0;
    }
    return now > kEarliestPlausible ? 1 : 0;
}

unsigned int _RTC_is_synched() noexcept {
    const time_t now = time(nullptr);
    const tm *local = localtime(&now);
    if (local == nullptr || local->tm_year + 1900 <= kLastYearBeforeSync) {
        return 0;
    }
    OZU_LOG_SHORT(OZULOG_NOTICE, "local time [%d]", local->tm_year + 1900);
    return 1;
}

unsigned int utils_get_cp_uptime(double *uptime, double *idle) noexcept {
    const ozu::UniqueFd file(open("/proc/uptime", O_RDONLY | O_CLOEXEC));
    if (!file.valid()) {
        return 0;
    }
    std::array<char, 128 + 1> text = {};
    if (read(file.get(), text.data(), text.size() - 1) < 0) {
        return 0;
    }
    double idleSeconds = 0.0;
    // NOLINTNEXTLINE(cert-err34-c): how the text is defined
    if (sscanf(text.data(), "%lf %lf", uptime, &idleSeconds) < 2) {
        return 0;
    }
    if (idle != nullptr) {
        *idle = idleSeconds;
    }
    return 1;
}
