#include "library/fadecurve.h"
#include "library/transitionplan.h"
#include "library/transitionsettings.h"

#include "platform/preferences.h"
#include "testenv.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

const QString kModeKey = QStringLiteral("ov.transition.mode");
const QString kCrossfadeKey = QStringLiteral("ov.transition.crossfadeSeconds");
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(TransitionModeTest, RawValuesRoundTripInMenuOrder)
{
    QStringList raw;
    for (TransitionMode mode : TransitionModes::kAll) {
        raw << TransitionModes::rawValue(mode);
        EXPECT_EQ(TransitionModes::fromRawValue(raw.last()), mode);
    }
    EXPECT_EQ(raw, (QStringList{"off", "gapless", "crossfade", "automix"}));
    EXPECT_FALSE(TransitionModes::fromRawValue(QStringLiteral("Crossfade")));
    EXPECT_FALSE(TransitionModes::fromRawValue(QStringLiteral(" off")));
    EXPECT_FALSE(TransitionModes::fromRawValue(QString()));
}

TEST(TransitionSettingsTest, StoredValuesAreReadOnceWithDefaultsForBadOnes)
{
    TestHome home;
    {
        const TransitionSettings missing;
        EXPECT_EQ(missing.mode(), TransitionMode::off);
        EXPECT_EQ(missing.crossfadeSeconds(), 6);
    }
    const struct {
        QVariant stored;
        qint64 expected;
    } crossfades[] = {{0, 6}, {13, 6}, {-1, 6}, {1, 1}, {12, 12}, {7, 7}, {QStringLiteral("lang"), 6},
                      {QStringLiteral("3.5"), 6}};
    for (const auto &c : crossfades) {
        Preferences::setValue(kCrossfadeKey, c.stored);
        EXPECT_EQ(TransitionSettings().crossfadeSeconds(), c.expected) << c.stored.toString().toStdString();
    }
    const struct {
        QVariant stored;
        qint64 expected;
    } automixes[] = {{QVariant(), 16}, {3, 16}, {33, 16}, {4, 4}, {32, 32}, {QStringLiteral("x"), 16}};
    for (const auto &c : automixes) {
        if (c.stored.isValid())
            Preferences::setValue(QStringLiteral("ov.transition.automixSeconds"), c.stored);
        EXPECT_EQ(TransitionSettings().automixSeconds(), c.expected) << c.stored.toString().toStdString();
    }
    const struct {
        QString stored;
        TransitionMode expected;
    } modes[] = {{QStringLiteral("Crossfade"), TransitionMode::off},
                 {QStringLiteral("crossfade"), TransitionMode::crossfade},
                 {QStringLiteral("automix"), TransitionMode::automix},
                 {QStringLiteral("gapless"), TransitionMode::gapless},
                 {QStringLiteral("beatmatch"), TransitionMode::off}};
    for (const auto &m : modes) {
        Preferences::setValue(kModeKey, m.stored);
        EXPECT_EQ(TransitionSettings().mode(), m.expected) << m.stored.toStdString();
    }

    // Read once: a later write behind the instance's back does not reach it.
    Preferences::setValue(kModeKey, QStringLiteral("gapless"));
    Preferences::setValue(kCrossfadeKey, 7);
    const TransitionSettings settings;
    Preferences::setValue(kModeKey, QStringLiteral("off"));
    Preferences::setValue(kCrossfadeKey, 2);
    EXPECT_EQ(settings.mode(), TransitionMode::gapless);
    EXPECT_EQ(settings.crossfadeSeconds(), 7);
}

TEST(TransitionSettingsTest, ChangesNotifyThenWriteAndEqualValuesOnlyWrite)
{
    TestHome home;
    TransitionSettings settings;
    QSignalSpy modeSpy(&settings, &TransitionSettings::modeChanged);
    QSignalSpy secondsSpy(&settings, &TransitionSettings::crossfadeSecondsChanged);
    std::optional<QString> storedWhenNotified;
    QObject::connect(&settings, &TransitionSettings::modeChanged, &settings,
                     [&] { storedWhenNotified = Preferences::string(kModeKey); });

    settings.setMode(TransitionMode::crossfade);
    ASSERT_EQ(modeSpy.count(), 1);
    EXPECT_EQ(modeSpy.at(0).at(0).value<TransitionMode>(), TransitionMode::crossfade);
    EXPECT_FALSE(storedWhenNotified); // observers run before the write
    EXPECT_EQ(Preferences::string(kModeKey), QStringLiteral("crossfade"));

    // The same value again: written (the key comes back) but not announced.
    Preferences::remove(kModeKey);
    settings.setMode(TransitionMode::crossfade);
    EXPECT_EQ(modeSpy.count(), 1);
    EXPECT_EQ(Preferences::string(kModeKey), QStringLiteral("crossfade"));

    settings.setCrossfadeSeconds(9);
    ASSERT_EQ(secondsSpy.count(), 1);
    EXPECT_EQ(secondsSpy.at(0).at(0).toLongLong(), 9);
    EXPECT_EQ(Preferences::integer(kCrossfadeKey), 9);
    Preferences::remove(kCrossfadeKey);
    settings.setCrossfadeSeconds(9);
    EXPECT_EQ(secondsSpy.count(), 1);
    EXPECT_EQ(Preferences::integer(kCrossfadeKey), 9);

    // What was written is what the next start reads.
    const TransitionSettings next;
    EXPECT_EQ(next.mode(), TransitionMode::crossfade);
    EXPECT_EQ(next.crossfadeSeconds(), 9);
}

TEST(FadeCurveTest, CurvesHaveTheirShapes)
{
    EXPECT_FLOAT_EQ(gain(FadeCurve::linear, 0.25, true), 0.25f);
    EXPECT_FLOAT_EQ(gain(FadeCurve::linear, 0.25, false), 0.75f);
    EXPECT_NEAR(gain(FadeCurve::equalPower, 0.5, true), 0.7071, 1e-4);
    EXPECT_NEAR(gain(FadeCurve::equalPower, 0.5, false), 0.7071, 1e-4);
    EXPECT_FLOAT_EQ(gain(FadeCurve::sCurve, 0.25, true), 0.15625f);
    EXPECT_FLOAT_EQ(gain(FadeCurve::sCurve, 0.25, false), 0.84375f);
    EXPECT_FLOAT_EQ(gain(FadeCurve::sCurve, 0.5, true), 0.5f);
    for (double p : {0.0, 0.3, 1.0}) {
        EXPECT_EQ(gain(FadeCurve::hold, p, true), 1.0f);
        EXPECT_EQ(gain(FadeCurve::hold, p, false), 1.0f);
        // Equal power keeps the summed power constant across the overlap.
        const double in = gain(FadeCurve::equalPower, p, true);
        const double out = gain(FadeCurve::equalPower, p, false);
        EXPECT_NEAR(in * in + out * out, 1.0, 1e-6);
    }
}

TEST(FadeCurveTest, ProgressOutsideTheOverlapIsClamped)
{
    for (FadeCurve curve : {FadeCurve::linear, FadeCurve::equalPower, FadeCurve::sCurve, FadeCurve::hold}) {
        for (bool fadingIn : {true, false}) {
            EXPECT_EQ(gain(curve, -0.5, fadingIn), gain(curve, 0, fadingIn));
            EXPECT_EQ(gain(curve, 1.7, fadingIn), gain(curve, 1, fadingIn));
            EXPECT_EQ(gain(curve, -kInf, fadingIn), gain(curve, 0, fadingIn));
            EXPECT_EQ(gain(curve, kInf, fadingIn), gain(curve, 1, fadingIn));
            EXPECT_EQ(gain(curve, kNaN, fadingIn), gain(curve, 0, fadingIn));
        }
        if (curve != FadeCurve::hold) {
            EXPECT_EQ(gain(curve, 0, true), 0.0f);
            EXPECT_EQ(gain(curve, 1, true), 1.0f);
            EXPECT_EQ(gain(curve, 0, false), 1.0f);
            EXPECT_NEAR(gain(curve, 1, false), 0.0f, 1e-7);
        }
    }
}

TransitionPlan goodPlan()
{
    return {180.0, 186.0, 0.5, 6.0, FadeCurve::equalPower, FadeCurve::sCurve, 1.02, 8.0, 0.5};
}

TEST(TransitionPlanTest, SanitizerKeepsAGoodPlanAsItIs)
{
    EXPECT_EQ(sanitized(goodPlan()), goodPlan());
    TransitionPlan noSwap = goodPlan();
    noSwap.bassSwapAt.reset();
    EXPECT_EQ(sanitized(noSwap), noSwap);
    // Boundaries are inside the ranges.
    const TransitionPlan edges{0, 0, 0, 30, FadeCurve::hold, FadeCurve::linear, 0.92, 60, 0.0};
    EXPECT_EQ(sanitized(edges), edges);
    EXPECT_EQ(sanitized(TransitionPlan{0, 0, 0, 0, FadeCurve::linear, FadeCurve::linear, 1.08, 0, 1.0}).incomingRate,
              1.08);
}

TEST(TransitionPlanTest, SanitizerRepairsEveryField)
{
    TransitionPlan p = goodPlan();
    p.outgoingEnd = 170;
    EXPECT_EQ(sanitized(p).outgoingEnd, 180.0);
    EXPECT_EQ(sanitized(p).outgoingStart, 180.0);

    p = goodPlan();
    p.outgoingStart = -3;
    p.outgoingEnd = -1;
    EXPECT_EQ(sanitized(p).outgoingStart, 0.0);
    EXPECT_EQ(sanitized(p).outgoingEnd, 0.0);

    // A non-finite end falls back to the repaired start, not to 0.
    p = goodPlan();
    p.outgoingStart = kNaN;
    p.outgoingEnd = kInf;
    EXPECT_EQ(sanitized(p).outgoingStart, 0.0);
    EXPECT_EQ(sanitized(p).outgoingEnd, 0.0);
    p.outgoingStart = 12;
    p.outgoingEnd = kNaN;
    EXPECT_EQ(sanitized(p).outgoingEnd, 12.0);

    // One field at a time, the others at their defaults. An infinite rate is not finite:
    // neutral 1, not the limit it points to.
    using P = TransitionPlan;
    const struct {
        double P::*field;
        double in, out;
    } repairs[] = {
        {&P::incomingStart, -2, 0},         {&P::incomingStart, kNaN, 0},       {&P::incomingStart, -kInf, 0},
        {&P::fadeDuration, 45, 30},         {&P::fadeDuration, -1, 0},          {&P::fadeDuration, kNaN, 0},
        {&P::fadeDuration, kInf, 0},        {&P::fadeDuration, -kInf, 0},       {&P::incomingRate, 1.5, 1.08},
        {&P::incomingRate, 0.5, 0.92},      {&P::incomingRate, 0, 0.92},        {&P::incomingRate, kNaN, 1},
        {&P::incomingRate, kInf, 1},        {&P::incomingRate, -kInf, 1},       {&P::rateReturnDuration, 61, 60},
        {&P::rateReturnDuration, -1, 0},    {&P::rateReturnDuration, kNaN, 0},  {&P::rateReturnDuration, kInf, 0},
    };
    for (const auto &r : repairs) {
        TransitionPlan plan;
        plan.*r.field = r.in;
        EXPECT_EQ(sanitized(plan).*r.field, r.out) << r.in;
    }

    TransitionPlan swap = goodPlan();
    swap.bassSwapAt = 1.3;
    EXPECT_EQ(sanitized(swap).bassSwapAt, 1.0);
    swap.bassSwapAt = -0.2;
    EXPECT_EQ(sanitized(swap).bassSwapAt, 0.0);
    swap.bassSwapAt = kNaN;
    EXPECT_FALSE(sanitized(swap).bassSwapAt);

    // Curves are never touched, and everything else repaired at once is still consistent.
    const TransitionPlan wild{kNaN, -5, kInf, 99, FadeCurve::hold, FadeCurve::equalPower, kNaN, kNaN, kInf};
    const TransitionPlan fixed{0, 0, 0, 30, FadeCurve::hold, FadeCurve::equalPower, 1, 0, std::nullopt};
    EXPECT_EQ(sanitized(wild), fixed);
    EXPECT_EQ(sanitized(fixed), fixed);
}

} // namespace
