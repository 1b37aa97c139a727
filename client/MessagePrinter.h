#pragma once
// Turns a received reply or event into the lines halvernctl prints: the header of the message, the reply
// header (return code, facility, notification level) and the fields, as text or as one JSON object.
#include <string>
#include <vector>

#include "client/SepClientC.h"
#include "client/TypedValue.h"

namespace SEP {

struct PrintedMessageT {
    bool ok = false;          // every requested field could be read
    bool errorReply = false;  // the server answered with its error header
    std::string errorText;    // its text
    std::string text;         // what to print
};

// `fieldSpecs` are read specs of the fields after the reply header (success replies only; an error
// reply carries its text instead).
PrintedMessageT printMessage(DecodedFrameT& frame, const std::vector<TypedValueT>& fieldSpecs, bool json);

}  // namespace SEP
