#pragma once
// Records on the SEP wire: a visitor that writes each field through a coder and one that reads them.
#include "framework/SerializableI.h"
#include "sep/DataCoderI.h"

namespace SEP {

// False when a field could not be written, or a string has no NUL within its buffer.
bool encodeRecord(DataWriterI& writer, MAL::UTI::SerializableI& record);
// False when the frame ends early or a string does not fit its buffer.
bool decodeRecord(DataReaderI& reader, MAL::UTI::SerializableI& record);

}  // namespace SEP
