// The byte record of an error.
#include <tovutil/toverrio.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <ostream>
#include <string_view>

namespace {

void writeWord(TovDataOutput &out, std::uint32_t word) {
    char bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    out.write(bytes, sizeof bytes);
}

// A length that its word can't hold is refused, never cut.
std::uint32_t lengthWord(std::size_t length) {
    if (length > std::numeric_limits<std::uint32_t>::max())
        tovCheck("tovutil/toverrio", __LINE__, "Internal error: length <= UINT32_MAX",
                 TOV_CODE(TOVRC_INTERNAL_ERROR));
    return static_cast<std::uint32_t>(length);
}

void writeCounted(TovDataOutput &out, std::string_view text) {
    const std::uint32_t length = lengthWord(text.size());
    writeWord(out, length);
    out.write(text.data(), length);
}

std::string_view orEmpty(const char *text) { return text ? text : ""; }

// By way of a cleared copy: what follows the NUL of a field may be an older text.
template <std::size_t size>
void writeFixed(TovDataOutput &out, const char (&field)[size]) {
    char bytes[size] = {};
    std::memcpy(bytes, field, strnlen(field, size - 1));
    out.write(bytes, size);
}

std::uint32_t readWord(TovDataInput &in) {
    std::uint32_t word = 0;
    char bytes[sizeof word];
    in.stream().read(bytes, sizeof bytes);
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The string grows as the bytes arrive, because the length may be a stranger's.
void readCounted(TovDataInput &in, TovString &text) {
    constexpr std::uint32_t step = 64 * 1024;
    const std::uint32_t length = readWord(in);
    text.clear();
    for (std::uint32_t done = 0, count; done < length; done += count) {
        count = std::min(length - done, step);
        text.resize(std::size_t{done} + count);
        in.stream().read(text.data() + done, count);
    }
}

// Like a field of a record that is on its way: the text is whole or the field is as before.
template <std::size_t size>
void readFixed(TovDataInput &in, TovErrorFull &error, char (&field)[size]) {
    char bytes[size] = {};
    in.stream().read(bytes, size);
    bytes[size - 1] = '\0';
    error.setStr(field, bytes, size);
}

} // namespace

TovDataOutput &operator<<(TovDataOutput &out, const TovErrorFull &error) {
    error.checkMods(); // what can fail comes before the first byte
    lengthWord(error.m_message.size());
    for (const std::uint32_t word :
         {error.getReturnCode(), error.getPosition(), error.getFailedLayer(), error.getReason(),
          std::uint32_t{error.getErrorType()}, error.getReason()})
        writeWord(out, word);
    writeCounted(out, orEmpty(error.getLocation()));
    writeCounted(out, orEmpty(error.getErrorMessage()));
    writeFixed(out, error.m_returnCodeStr);
    writeFixed(out, error.m_layerStr);
    writeFixed(out, error.m_reasonStr);
    writeFixed(out, error.m_from);
    writeFixed(out, error.m_version);
    writeFixed(out, error.m_file);
    writeFixed(out, error.m_build);
    writeWord(out, error.m_line);
    writeCounted(out, error.m_errString);
    writeCounted(out, error.m_message);
    writeCounted(out, error.m_location);
    return out;
}

TovDataInput &operator>>(TovDataInput &in, TovErrorFull &error) {
    error.setReturnCode(readWord(in));
    error.setPosition(readWord(in));
    error.setFailedLayer(readWord(in));
    error.setReason(readWord(in));
    error.setErrorType(static_cast<TovError::ErrorType>(readWord(in)));
    error.setReason(readWord(in));
    TovString text;
    readCounted(in, text);
    error.setLocation(text.c_str());
    readCounted(in, text);
    error.setErrorMessage(text.c_str());
    readFixed(in, error, error.m_returnCodeStr);
    readFixed(in, error, error.m_layerStr);
    readFixed(in, error, error.m_reasonStr);
    readFixed(in, error, error.m_from);
    readFixed(in, error, error.m_version);
    readFixed(in, error, error.m_file);
    readFixed(in, error, error.m_build);
    error.m_line = readWord(in);
    readCounted(in, error.m_errString);
    readCounted(in, error.m_message);
    readCounted(in, error.m_location);
    return in;
}

TovDataOutput::~TovDataOutput() = default;

TovDataInput::Stream::~Stream() = default;

TovOutputStream::~TovOutputStream() = default;

TovStdOutputStream::~TovStdOutputStream() = default;

void TovStdOutputStream::write(const char *bytes, unsigned length) {
    m_stream->write(bytes, static_cast<std::streamsize>(length));
}
