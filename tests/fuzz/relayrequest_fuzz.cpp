// The live relay's request rules on arbitrary bytes from a client.
//
// Input: two bytes of port, then what a client sent. Whatever arrives, the head length
// lies inside the bytes, the answer is one of the five the listener knows, and a request
// that is served really is "GET /stream.mp3" naming our own loopback host and port.

#include "engine/relayrequest.h"

#include "fuzzcheck.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const quint16 port = quint16(data[0] << 8 | data[1]);
    const QByteArray received = FuzzInput::bytes(data + 2, size - 2);

    const auto length = RelayRequest::headLength(received);
    if (!length)
        return 0;
    FUZZ_CHECK(*length >= 0 && *length <= received.size());
    const QByteArrayView head = QByteArrayView(received).first(*length);

    const int status = RelayRequest::status(head, port);
    FUZZ_CHECK(status == 200 || status == 400 || status == 403 || status == 404 || status == 405);
    if (status == 200) {
        FUZZ_CHECK(head.startsWith("GET /stream.mp3 HTTP/1."));
        FUZZ_CHECK(head.contains(QByteArray("127.0.0.1:") + QByteArray::number(port)));
        // A query or a second target would have been refused.
        FUZZ_CHECK(!head.first(head.indexOf('\n') < 0 ? head.size() : head.indexOf('\n')).contains('?'));
    } else {
        const QByteArray answer = RelayRequest::refusal(status);
        FUZZ_CHECK(answer.startsWith("HTTP/1.0 " + QByteArray::number(status)));
        FUZZ_CHECK(answer.endsWith("\r\n\r\n"));
    }
    return 0;
}
