// The ID3 tag builder, checked by reading what it builds with TagLib.
//
// Input: title, artist and album (random-length UTF-8, cleaned of control characters as
// the song saver does before it tags), then the cover bytes. The tag is put in front of two
// MPEG audio frames; TagLib must find one tag of exactly the built size and read back
// every text and the cover unchanged, with no frame for an empty text.

#include "engine/id3tag.h"
#include "engine/tracktitle.h"

#include "fuzzcheck.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2frame.h>
#include <taglib/id3v2header.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tbytevectorstream.h>

#include <cstdint>

namespace {

// One MPEG-1 Layer III frame, 128 kbit/s at 44.1 kHz: 417 bytes, header then silence.
QByteArray mpegFrame()
{
    QByteArray frame(417, '\0');
    frame[0] = char(0xFF);
    frame[1] = char(0xFB);
    frame[2] = char(0x90);
    frame[3] = char(0xC4);
    return frame;
}

QString qstring(const TagLib::String &text)
{
    return QString::fromUtf8(text.toCString(true));
}

QByteArray qbytes(const TagLib::ByteVector &bytes)
{
    return QByteArray(bytes.data(), qsizetype(bytes.size()));
}

void checkTextFrame(const TagLib::ID3v2::Tag &tag, const char *id, const QString &expected)
{
    const TagLib::ID3v2::FrameList frames = tag.frameList(id);
    if (expected.isEmpty()) {
        FUZZ_CHECK(frames.isEmpty());
        return;
    }
    FUZZ_CHECK(frames.size() == 1);
    FUZZ_CHECK_EQ(qstring(frames.front()->toString()), expected);
}

void checkCover(const TagLib::ID3v2::Tag &tag, const QByteArray &cover)
{
    const TagLib::ID3v2::FrameList frames = tag.frameList("APIC");
    if (cover.isEmpty()) {
        FUZZ_CHECK(frames.isEmpty());
        return;
    }
    FUZZ_CHECK(frames.size() == 1);
    const auto *picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame *>(frames.front());
    FUZZ_CHECK(picture);
    FUZZ_CHECK(picture->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover);
    FUZZ_CHECK_EQ(qstring(picture->mimeType()), QStringLiteral("image/jpeg"));
    FUZZ_CHECK(picture->description().isEmpty());
    FUZZ_CHECK(qbytes(picture->picture()) == cover);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto text = [&input] {
        const std::string raw = input.ConsumeRandomLengthString(512);
        return TrackTitle::withoutControlCharacters(QString::fromUtf8(raw.data(), qsizetype(raw.size())));
    };
    const QString title = text();
    const QString artist = text();
    const QString album = text();
    const std::vector<uint8_t> rest = input.ConsumeRemainingBytes<uint8_t>();
    const QByteArray cover(reinterpret_cast<const char *>(rest.data()), qsizetype(rest.size()));

    const QByteArray tag = Id3Tag::buildID3v2Tag(title, artist, album, cover);
    FUZZ_CHECK(tag.startsWith(QByteArrayView("ID3\x03\x00", 5)));

    const QByteArray file = tag + mpegFrame() + mpegFrame();
    TagLib::ByteVector bytes(file.constData(), unsigned(file.size()));
    TagLib::ByteVectorStream stream(bytes);
    TagLib::MPEG::File mp3(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
    FUZZ_CHECK(mp3.isValid());
    FUZZ_CHECK(mp3.hasID3v2Tag());
    const TagLib::ID3v2::Tag *id3 = mp3.ID3v2Tag();
    FUZZ_CHECK(id3->header()->majorVersion() == 3);
    FUZZ_CHECK(qsizetype(id3->header()->completeTagSize()) == tag.size());

    checkTextFrame(*id3, "TIT2", title);
    checkTextFrame(*id3, "TPE1", artist);
    checkTextFrame(*id3, "TALB", album);
    checkCover(*id3, cover);
    FUZZ_CHECK(id3->frameList().size() == unsigned(!title.isEmpty() + !artist.isEmpty() + !album.isEmpty() + !cover.isEmpty()));
    return 0;
}
