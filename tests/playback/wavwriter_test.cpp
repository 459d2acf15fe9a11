#include "playback/wavwriter.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

TEST(WavWriter, HeaderDescribesTheFramesAndSamplesFollowUnchanged)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.wav"));
    std::vector<float> frames(2 * 1000);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = float(i) / float(frames.size()) - 0.5f;

    WavWriter writer;
    ASSERT_TRUE(writer.open(path, 48000));
    ASSERT_TRUE(writer.write(frames.data(), 600));
    ASSERT_TRUE(writer.write(frames.data() + 2 * 600, 400));
    ASSERT_TRUE(writer.finish());

    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    ASSERT_EQ(bytes.size(), 58 + 1000 * 8);
    const char *h = bytes.constData();
    EXPECT_EQ(QByteArray(h, 4), "RIFF");
    EXPECT_EQ(qFromLittleEndian<quint32>(h + 4), quint32(bytes.size() - 8));
    EXPECT_EQ(qFromLittleEndian<quint16>(h + 20), 3); // IEEE float
    EXPECT_EQ(qFromLittleEndian<quint16>(h + 22), 2);
    EXPECT_EQ(qFromLittleEndian<quint32>(h + 24), 48000u);
    EXPECT_EQ(qFromLittleEndian<quint32>(h + 46), 1000u); // fact: frames
    EXPECT_EQ(QByteArray(h + 50, 4), "data");
    EXPECT_EQ(qFromLittleEndian<quint32>(h + 54), 8000u);
    EXPECT_EQ(std::memcmp(h + 58, frames.data(), 8000), 0);
}

TEST(WavWriter, UnwritablePlaceIsAnErrorNamingTheFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("missing/out.wav"));
    WavWriter writer;
    EXPECT_FALSE(writer.open(path, 44100));
    EXPECT_TRUE(writer.errorString().contains(path)) << writer.errorString().toStdString();
}
