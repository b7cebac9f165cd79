#include "status/RepositoryGrade.h"

#include "StatusFixture.h"
#include "status/StatusIndicators.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double kSixHours = 21600;

// The lit lights in the order OK, warning, critical; an unlit one is '-'.
std::string lights(const StatusIndicators& indicator)
{
    return {indicator.OKLight ? 'O' : '-', indicator.warningLight ? 'W' : '-',
            indicator.criticalLight ? 'C' : '-'};
}

class RepositoryGradeTest : public StatusFixture
{
protected:
    RepositoryGrade grade(const QVariantMap& values)
    {
        const auto status = RepositoryStatus::statusForRepository(makeArchive(u"A"_s, values));
        EXPECT_TRUE(status);
        return RepositoryGrade::gradeStatus(*status, *m_defaults, m_ignores.get());
    }
};

// Capture indicators on a 6-hour interval: warning after 3 intervals, critical after 7.
TEST_F(RepositoryGradeTest, CaptureIndicatorLightsAndTitles)
{
    struct Row
    {
        QString label;
        QDateTime last;
        bool loggedIssues, ignore;
        std::string lights;
        QString title;
    };
    const std::vector<Row> rows{
        {u"never captured"_s, {}, false, false, "--C", u"Captured never"_s},
        {u"an hour ago"_s, m_now.addSecs(-3600), false, false, "O--", u"Captured today"_s},
        {u"under 3 intervals"_s, m_now.addSecs(-3 * 21600 + 1), false, false, "O--",
         u"Captured yesterday"_s},
        {u"3 intervals"_s, m_now.addSecs(-3 * 21600), false, false, "-W-", u"Captured yesterday"_s},
        {u"7 intervals"_s, m_now.addSecs(-7 * 21600), false, false, "--C",
         u"Captured 2 days ago"_s},
        {u"13 days"_s, noonDaysAgo(13), false, false, "--C", u"Captured 13 days ago"_s},
        {u"14 days"_s, noonDaysAgo(14), false, false, "--C", u"Captured 14 days ago"_s},
        {u"15 days"_s, noonDaysAgo(15), false, false, "--C", u"Captured 3 weeks ago"_s},
        {u"logged issues"_s, m_now.addSecs(-60), true, false, "OW-", u"Capture logged issues"_s},
        {u"ignored"_s, {}, true, true, "---", u"Capture warnings silenced"_s},
    };
    for (const Row& row : rows) {
        const StatusIndicators indicator =
            StatusIndicators::indicatorForAction(u"Capture"_s, u"Captured"_s, row.last, kSixHours,
                                                 MonitorDefaults::kStatusCaptureWarningIntervals,
                                                 MonitorDefaults::kStatusCaptureTruantIntervals,
                                                 row.loggedIssues, row.ignore, *m_defaults);
        EXPECT_EQ(indicator.title, row.title) << row.label.toStdString();
        EXPECT_EQ(lights(indicator), row.lights) << row.label.toStdString();
    }
}

TEST_F(RepositoryGradeTest, IntervalsTakeTheMinimumsAndVerifyFollowsCapture)
{
    // A 1-hour mean grades against 6 hours; a 3-day mean makes the verify interval 3 days
    // although its own minimum is 1 day.
    for (const auto& [mean, capture, verify] :
         {std::tuple{3600.0, 21600.0, 86400.0}, {259200.0, 259200.0, 259200.0}}) {
        const RepositoryGrade graded = grade({{u"meanCaptureInterval"_s, mean}});
        EXPECT_EQ(graded.captureInterval, capture) << mean;
        EXPECT_EQ(graded.verifyInterval, verify) << mean;
    }
    // Captured 4 hours ago: within 3 x 6 h, so OK, though it is 4 means of 1 hour.
    const RepositoryGrade recent = grade(
        {{u"meanCaptureInterval"_s, 3600.0}, {u"lastCaptureDate"_s, m_now.addSecs(-4 * 3600)}});
    EXPECT_EQ(lights(recent.capture), "O--");
}

TEST_F(RepositoryGradeTest, NeedsRepairOverridesEverythingUnlessIgnored)
{
    // The name is the archive's own ("A"), whatever the file last said.
    const QVariantMap broken{
        {u"needsRepair"_s, true}, {u"displayName"_s, u"Old"_s}, {u"repositoryUUID"_s, u"U-R"_s}};
    RepositoryGrade graded = grade(broken);
    EXPECT_TRUE(graded.needsRepair);
    EXPECT_EQ(graded.repairText, u"A needs repair"_s);
    EXPECT_TRUE(graded.isCritical());
    EXPECT_FALSE(graded.isWarning());
    EXPECT_TRUE(graded.capture.title.isEmpty());

    m_ignores->setImpermanentValue(true, RepositoryGrade::kIgnoreRepairWarnings, u"U-R"_s);
    graded = grade(broken);
    EXPECT_TRUE(graded.needsRepair);
    EXPECT_FALSE(graded.isCritical());

    // Once repaired, the silence is forgotten.
    grade({{u"needsRepair"_s, false}, {u"repositoryUUID"_s, u"U-R"_s}});
    EXPECT_FALSE(m_ignores->impermanentValueForKey(RepositoryGrade::kIgnoreRepairWarnings, u"U-R"_s)
                     .isValid());
}

TEST_F(RepositoryGradeTest, OnlyTrueNumbersSilenceWarnings)
{
    const QVariantMap stale{{u"repositoryUUID"_s, u"U-1"_s}};
    for (const auto& [value, silenced] : {std::pair<QVariant, bool>{true, true},
                                          {qint64(1), true},
                                          {0.0, false},
                                          {false, false},
                                          {u"1"_s, false}}) {
        m_ignores->setImpermanentValue(value, RepositoryGrade::kIgnoreCaptureWarnings, u"U-1"_s);
        const RepositoryGrade graded = grade(stale);
        EXPECT_EQ(graded.capture.title == u"Capture warnings silenced"_s, silenced)
            << value.toString().toStdString();
        EXPECT_EQ(graded.capture.criticalLight, !silenced);
    }
}

TEST_F(RepositoryGradeTest, SpaceLightsFollowTheUsedFraction)
{
    // used / (free + size), against 0.91 and 0.96; the volume's free space is the stored one
    // because no volume is found at the archive's recorded path.
    for (const auto& [size, unused, expected] :
         {std::tuple<qint64, qint64, std::string>{9000, 0, "O--"},
          {10200, 0, "-W-"},
          {30000, 0, "--C"},
          {30000, 20000, "O--"}}) {
        auto status = RepositoryStatus::statusForRepository(makeArchive(u"S"_s));
        ASSERT_TRUE(status);
        status->setProperty(u"/nowhere/S.stromi"_s, RepositoryStatus::kRepositoryPath);
        status->setProperty(size, RepositoryStatus::kRepositorySize);
        status->setProperty(unused, RepositoryStatus::kRepositoryFree);
        status->setProperty(qint64(1000), RepositoryStatus::kVolumeFree);
        const RepositoryGrade graded =
            RepositoryGrade::gradeStatus(*status, *m_defaults, m_ignores.get());
        EXPECT_EQ(lights(graded.space), expected) << size << " " << unused;
        EXPECT_TRUE(graded.summary.criticalLight) << "never captured nor verified";
    }
}

} // namespace
