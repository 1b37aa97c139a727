#pragma once
// Records on the SEP wire: a visitor that writes each field through a coder and one that reads them.
#include "framework/SerializableI.h"
#include "sep/DataCoderI.h"

namespace SEP {

// False when a field could not be written, or a string has no NUL within its buffer.
bool encodeRecord(DataWriterI& writer, MAL::UTI::SerializableI& record);
enum class DecodeResultE { Ok, Truncated, NotTerminated };
// Truncated when the frame ends early; NotTerminated when a string does not fit its buffer with its NUL,
// with the string's position among the record's strings in `badString`.
DecodeResultE decodeRecord(DataReaderI& reader, MAL::UTI::SerializableI& record, int* badString = nullptr);

}  // namespace SEP
