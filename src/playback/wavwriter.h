#pragma once

#include <QFile>
#include <QString>

// Writes interleaved stereo 32-bit float frames as a WAV file (WAVE_FORMAT_IEEE_FLOAT), the
// offline render's output. The header is written with a zero length first and completed
// by finish(), so an interrupted render leaves a file whose header says it is unfinished
// rather than one that claims frames it does not have.
//
// Used by one thread at a time.
class WavWriter {
public:
    WavWriter() = default;
    ~WavWriter();
    WavWriter(const WavWriter &) = delete;
    WavWriter &operator=(const WavWriter &) = delete;

    [[nodiscard]] bool open(const QString &path, int sampleRate);
    [[nodiscard]] bool write(const float *interleaved, qint64 frames);
    // Fills in the lengths and closes the file.
    [[nodiscard]] bool finish();
    [[nodiscard]] qint64 framesWritten() const { return m_frames; }
    [[nodiscard]] QString errorString() const { return m_error; }

private:
    bool fail(const QString &what);

    QFile m_file;
    int m_rate = 0;
    qint64 m_frames = 0;
    QString m_error;
};
