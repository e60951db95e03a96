// SPDX-License-Identifier: Apache-2.0
//
// Reads "Content-Length" and "Transfer-Encoding".
#include "host/http/message_framing.h"

#include "base/ascii.h"

namespace kestd {

int ReadFraming(const RequestHead& head, MessageFraming& out)
{
    out = {};
    if (!head.names.MayHold(NameKey("Content-Length")) &&
        !head.names.MayHold(NameKey("Transfer-Encoding")))
        return 0;
    const Field* length = nullptr;
    const Field* coding = nullptr;
    for (const Field& field : head.fields) {
        if (base::EqualsIgnoringCase(field.name, "Content-Length")) {
            if (length)
                return 400;
            length = &field;
        } else if (base::EqualsIgnoringCase(field.name, "Transfer-Encoding")) {
            if (coding)
                return 400;
            coding = &field;
        }
    }
    if (coding) {
        if (length || head.version == 10)
            return 400;
        if (!base::EqualsIgnoringCase(coding->value, "chunked"))
            return 501;
        out.kind = MessageFraming::Kind::Chunked;
    } else if (length) {
        if (!base::ParseDecimal(length->value, out.length))
            return 400;
        out.kind = out.length ? MessageFraming::Kind::Length : MessageFraming::Kind::None;
    }
    return 0;
}

} // namespace kestd
