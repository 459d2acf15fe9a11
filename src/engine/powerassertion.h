#pragma once

#include <QLatin1StringView>
#include <QString>

#include <optional>

// Keeps the computer from idle sleep while recordings run or are planned; the display may
// still sleep. The engine decides when (SniperScheduler::updatePowerAssertion), the
// platform decides how (a logind inhibitor lock, a desktop's own inhibit call).
//
// The scheduler acquires once and keeps what it holds: a hold begun for a pending plan is
// not renewed when that plan's recording starts, so its reason stays the first one. It
// calls release() only while holding. Implementations live on the GUI thread and must not
// block it; a hold the system refuses is simply not there.
class PowerAssertion {
public:
    static constexpr QLatin1StringView kRecordingReason { "Radio recording in progress" };
    static constexpr QLatin1StringView kPendingReason { "Scheduled radio recording pending" };

    virtual ~PowerAssertion() = default;

    virtual void acquire(const QString &reason) = 0;
    virtual void release() = 0;
};

// Holds nothing with the system, only remembers what it was asked: for orvida-cli on
// machines without a session bus, and for tests that check when the scheduler holds.
class NullPowerAssertion : public PowerAssertion {
public:
    void acquire(const QString &reason) override;
    void release() override;

    [[nodiscard]] bool isHeld() const { return m_reason.has_value(); }
    [[nodiscard]] const std::optional<QString> &reason() const { return m_reason; }
    [[nodiscard]] int acquisitions() const { return m_acquisitions; }

private:
    std::optional<QString> m_reason;
    int m_acquisitions = 0;
};
