#include "engine/scheduledrecording.h"

#include <gtest/gtest.h>

// The directory's JSON can carry a surrogate on its own as an escape; a plan holding one
// must be written so that it reads back as it was, and in a form any JSON reader accepts.
TEST(ScheduleFileFormat, TextsWithLoneSurrogatesReadBackUnchanged)
{
    const QByteArray file = R"([{"id":"A1B2C3D4-0000-4000-8000-000000000002","stationID":"x\udc00",)"
                            R"("stationName":"Caf\u00e9 \ud83c\udfb5 \ud83c","streamURL":"http://127.0.0.1/",)"
                            R"("country":"","bitrate":0,"codec":"","start":1,"end":2,"mode":"fullShow"}])";
    const auto plans = Schedule::decode(file);
    ASSERT_TRUE(plans);
    ASSERT_EQ(plans->size(), 1);
    EXPECT_EQ(plans->first().stationId, QStringLiteral("x") + QChar(0xDC00));
    EXPECT_EQ(plans->first().stationName, QString::fromUtf8("Café 🎵 ") + QChar(0xD83C));

    const QByteArray written = Schedule::encode(*plans);
    EXPECT_TRUE(written.contains(R"("stationID":"x\udc00")")) << written.toStdString();
    EXPECT_TRUE(written.contains("\"stationName\":\"Caf\xC3\xA9 \xF0\x9F\x8E\xB5 \\ud83c\"")) << written.toStdString();
    EXPECT_EQ(Schedule::decode(written), plans);
}
