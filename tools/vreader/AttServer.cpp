#include "tools/vreader/AttServer.h"

#include <algorithm>

namespace kestrin::vreader {

namespace {

using att::ErrorCode;
using att::Opcode;

Bytes errorResponse(Opcode request, std::uint16_t handle, unsigned code) {
  return ByteWriter()
      .u8(static_cast<unsigned>(Opcode::errorResponse))
      .u8(static_cast<unsigned>(request))
      .u16(handle)
      .u8(code)
      .take();
}

Bytes errorResponse(Opcode request, std::uint16_t handle, ErrorCode code) {
  return errorResponse(request, handle, static_cast<unsigned>(code));
}

Bytes invalidPdu(Opcode request) { return errorResponse(request, 0, ErrorCode::invalidPdu); }

bool isRange(std::uint16_t first, std::uint16_t last) { return first != 0 && first <= last; }

// A list of entries that all have the length of the first, as the "by type" answers carry them.
// It takes entries until one does not fit or has another length.
class EqualLengthList {
 public:
  explicit EqualLengthList(std::size_t room) : room_(room) {}

  bool add(const Bytes& entry) {
    if (list_.size() == 0) entryLength_ = entry.size();
    if (entry.size() != entryLength_ || list_.size() + entryLength_ > room_) return false;
    list_.append(entry);
    return true;
  }
  [[nodiscard]] bool empty() const noexcept { return list_.size() == 0; }
  [[nodiscard]] Bytes answer(Opcode response) const {
    return ByteWriter()
        .u8(static_cast<unsigned>(response))
        .u8(static_cast<unsigned>(entryLength_))
        .append(list_.bytes())
        .take();
  }

 private:
  const std::size_t room_;
  std::size_t entryLength_ = 0;
  ByteWriter list_;
};

// The length field of those answers is one byte, and counts the handles before a value too.
constexpr std::size_t kLargestEntry = 255;

ByteView cut(const Bytes& value, std::size_t length) {
  return ByteView(value).first(std::min(value.size(), length));
}

}  // namespace

std::optional<Bytes> AttServer::answer(ByteView pdu) {
  if (pdu.empty()) return std::nullopt;
  ByteReader request(pdu);
  const unsigned code = request.u8();
  const auto opcode = static_cast<Opcode>(code);
  switch (opcode) {
    case Opcode::exchangeMtuRequest:
      return exchangeMtu(request);
    case Opcode::findInformationRequest:
      return findInformation(request);
    case Opcode::findByTypeValueRequest:
      return findByTypeValue(request);
    case Opcode::readByTypeRequest:
      return readByType(request);
    case Opcode::readRequest:
      return read(request);
    case Opcode::readBlobRequest:
      return readBlob(request);
    case Opcode::readByGroupTypeRequest:
      return readByGroupType(request);
    case Opcode::writeRequest:
      return write(request);
    case Opcode::writeCommand:
      writeCommand(request);
      return std::nullopt;
    default:
      break;
  }
  // Requests have even opcodes; what is odd answers a request that this side never made.
  const bool isRequest =
      code % 2 == 0 && (code & att::kCommandFlag) == 0 && opcode != Opcode::handleValueConfirmation;
  if (!isRequest) return std::nullopt;
  // Among them prepare and execute: no value here is longer than one write carries.
  return errorResponse(opcode, 0, ErrorCode::requestNotSupported);
}

Bytes AttServer::exchangeMtu(ByteReader request) {
  const std::size_t clientMtu = request.u16();
  if (request.overrun() || request.left() != 0) return invalidPdu(Opcode::exchangeMtuRequest);
  mtu_ = std::clamp(clientMtu, att::kDefaultMtu, largestMtu_);
  application_.mtuExchanged(mtu_);
  return ByteWriter()
      .u8(static_cast<unsigned>(Opcode::exchangeMtuResponse))
      .u16(static_cast<unsigned>(largestMtu_))
      .take();
}

Bytes AttServer::findInformation(ByteReader request) const {
  const std::uint16_t first = request.u16();
  const std::uint16_t last = request.u16();
  constexpr auto kRequest = Opcode::findInformationRequest;
  if (request.overrun() || request.left() != 0) return invalidPdu(kRequest);
  if (!isRange(first, last)) return errorResponse(kRequest, first, ErrorCode::invalidHandle);

  EqualLengthList list(mtu_ - 2);
  std::size_t uuidLength = 0;
  for (const Attribute& attribute : database_.between(first, last)) {
    const Bytes uuid = uuidBytes(attribute.type);
    if (uuidLength == 0) uuidLength = uuid.size();
    if (!list.add(ByteWriter().u16(attribute.handle).append(uuid).take())) break;
  }
  if (list.empty()) return errorResponse(kRequest, first, ErrorCode::attributeNotFound);
  // Here the second byte tells the form of the UUIDs: 0x01 for 16 bits, 0x02 for 128.
  Bytes answer = list.answer(Opcode::findInformationResponse);
  answer[1] = uuidLength == 2 ? 0x01 : 0x02;
  return answer;
}

Bytes AttServer::findByTypeValue(ByteReader request) const {
  const std::uint16_t first = request.u16();
  const std::uint16_t last = request.u16();
  const CBUUID type(request.u16());
  const ByteView value = request.rest();
  constexpr auto kRequest = Opcode::findByTypeValueRequest;
  if (request.overrun()) return invalidPdu(kRequest);
  if (!isRange(first, last)) return errorResponse(kRequest, first, ErrorCode::invalidHandle);

  ByteWriter answer;
  answer.u8(static_cast<unsigned>(Opcode::findByTypeValueResponse));
  constexpr std::size_t kEntry = 4;
  for (const Attribute& attribute : database_.between(first, last)) {
    if (attribute.type != type || !std::ranges::equal(attribute.value, value)) continue;
    if (answer.size() + kEntry > mtu_) break;
    answer.u16(attribute.handle).u16(database_.groupEnd(attribute));
  }
  if (answer.size() == 1) return errorResponse(kRequest, first, ErrorCode::attributeNotFound);
  return answer.take();
}

Bytes AttServer::readByType(ByteReader request) {
  const std::uint16_t first = request.u16();
  const std::uint16_t last = request.u16();
  const auto type = uuidFromBytes(request.rest());
  constexpr auto kRequest = Opcode::readByTypeRequest;
  if (request.overrun() || !type) return invalidPdu(kRequest);
  if (!isRange(first, last)) return errorResponse(kRequest, first, ErrorCode::invalidHandle);

  EqualLengthList list(mtu_ - 2);
  const std::size_t room = std::min(mtu_ - 2, kLargestEntry) - 2;
  for (const Attribute& attribute : database_.between(first, last)) {
    if (attribute.type != *type) continue;
    if (const auto refused = readRefusal(attribute)) {
      if (list.empty()) return errorResponse(kRequest, attribute.handle, *refused);
      break;
    }
    const Bytes value = valueOf(attribute);
    if (!list.add(ByteWriter().u16(attribute.handle).append(cut(value, room)).take())) break;
    if (attribute.kind == Attribute::Kind::value) application_.wasRead(attribute);
  }
  if (list.empty()) return errorResponse(kRequest, first, ErrorCode::attributeNotFound);
  return list.answer(Opcode::readByTypeResponse);
}

Bytes AttServer::readByGroupType(ByteReader request) const {
  const std::uint16_t first = request.u16();
  const std::uint16_t last = request.u16();
  const auto type = uuidFromBytes(request.rest());
  constexpr auto kRequest = Opcode::readByGroupTypeRequest;
  if (request.overrun() || !type) return invalidPdu(kRequest);
  if (!isRange(first, last)) return errorResponse(kRequest, first, ErrorCode::invalidHandle);
  if (*type != CBUUID(att::kPrimaryService) && *type != CBUUID(att::kSecondaryService)) {
    return errorResponse(kRequest, first, ErrorCode::unsupportedGroupType);
  }

  EqualLengthList list(mtu_ - 2);
  for (const Attribute& attribute : database_.between(first, last)) {
    if (attribute.type != *type) continue;
    const Bytes entry = ByteWriter()
                            .u16(attribute.handle)
                            .u16(database_.groupEnd(attribute))
                            .append(attribute.value)
                            .take();
    if (!list.add(entry)) break;
  }
  if (list.empty()) return errorResponse(kRequest, first, ErrorCode::attributeNotFound);
  return list.answer(Opcode::readByGroupTypeResponse);
}

Bytes AttServer::read(ByteReader request) {
  const std::uint16_t handle = request.u16();
  if (request.overrun() || request.left() != 0) return invalidPdu(Opcode::readRequest);
  return readFrom(Opcode::readRequest, handle, 0);
}

Bytes AttServer::readBlob(ByteReader request) {
  const std::uint16_t handle = request.u16();
  const std::size_t offset = request.u16();
  if (request.overrun() || request.left() != 0) return invalidPdu(Opcode::readBlobRequest);
  return readFrom(Opcode::readBlobRequest, handle, offset);
}

Bytes AttServer::readFrom(Opcode request, std::uint16_t handle, std::size_t offset) {
  const Attribute* const attribute = database_.find(handle);
  if (attribute == nullptr) return errorResponse(request, handle, ErrorCode::invalidHandle);
  if (const auto refused = readRefusal(*attribute)) {
    return errorResponse(request, handle, *refused);
  }
  const Bytes value = valueOf(*attribute);
  if (offset > value.size()) return errorResponse(request, handle, ErrorCode::invalidOffset);
  // A long value is read in several pieces; it counts once, at its beginning.
  if (attribute->kind == Attribute::Kind::value && offset == 0) application_.wasRead(*attribute);
  const ByteView left = ByteView(value).subspan(offset);
  return ByteWriter()
      .u8(static_cast<unsigned>(request) + 1)
      .append(left.first(std::min(left.size(), mtu_ - 1)))
      .take();
}

std::optional<std::uint8_t> AttServer::readRefusal(const Attribute& attribute) const {
  if (attribute.kind != Attribute::Kind::value) return std::nullopt;
  if ((attribute.properties & att::kPropertyRead) == 0) {
    return static_cast<std::uint8_t>(ErrorCode::readNotPermitted);
  }
  return application_.refusal(Access::read);
}

Bytes AttServer::valueOf(const Attribute& attribute) const {
  if (attribute.kind != Attribute::Kind::configuration) return attribute.value;
  const auto found = configurations_.find(attribute.valueHandle);
  return ByteWriter().u16(found == configurations_.end() ? 0 : found->second).take();
}

Bytes AttServer::write(ByteReader request) {
  const std::uint16_t handle = request.u16();
  const ByteView value = request.rest();
  if (request.overrun()) return invalidPdu(Opcode::writeRequest);
  const Attribute* const attribute = database_.find(handle);
  if (attribute == nullptr) {
    return errorResponse(Opcode::writeRequest, handle, ErrorCode::invalidHandle);
  }
  const bool isConfiguration = attribute->kind == Attribute::Kind::configuration;
  if (!isConfiguration && (attribute->properties & att::kPropertyWrite) == 0) {
    if (attribute->kind == Attribute::Kind::value) {
      application_.writeNotPermitted(*attribute, value);
    }
    return errorResponse(Opcode::writeRequest, handle, ErrorCode::writeNotPermitted);
  }
  const auto refused =
      isConfiguration ? configure(*attribute, value) : store(*attribute, value, WriteType::request);
  if (refused) return errorResponse(Opcode::writeRequest, handle, *refused);
  return {static_cast<std::uint8_t>(Opcode::writeResponse)};
}

void AttServer::writeCommand(ByteReader request) {
  const std::uint16_t handle = request.u16();
  const ByteView value = request.rest();
  if (request.overrun()) return;
  const Attribute* const attribute = database_.find(handle);
  if (attribute == nullptr || attribute->kind != Attribute::Kind::value) return;
  if ((attribute->properties & att::kPropertyWriteWithoutResponse) == 0) return;
  // A command that is refused is dropped: it has no answer.
  store(*attribute, value, WriteType::command);
}

std::optional<std::uint8_t> AttServer::store(const Attribute& attribute, ByteView value,
                                             WriteType type) {
  if (value.size() > att::kLargestValue) {
    return static_cast<std::uint8_t>(ErrorCode::invalidAttributeValueLength);
  }
  if (const auto refused = application_.refusal(Access::write)) return refused;
  application_.wasWritten(attribute, value, type);
  return std::nullopt;
}

std::optional<std::uint8_t> AttServer::configure(const Attribute& attribute, ByteView value) {
  if (value.size() != 2) {
    return static_cast<std::uint8_t>(ErrorCode::invalidAttributeValueLength);
  }
  const unsigned bits = ByteReader(value).u16();
  unsigned allowed = 0;
  if ((attribute.properties & att::kPropertyNotify) != 0) allowed |= att::kNotifications;
  if ((attribute.properties & att::kPropertyIndicate) != 0) allowed |= att::kIndications;
  if ((bits & ~allowed) != 0) {
    return static_cast<std::uint8_t>(ErrorCode::configurationImproper);
  }
  if (const auto refused = application_.refusal(Access::subscribe)) return refused;
  configurations_[attribute.valueHandle] = bits;
  application_.subscriptionChanged(attribute, bits);
  return std::nullopt;
}

bool AttServer::notifies(std::uint16_t valueHandle) const {
  const auto found = configurations_.find(valueHandle);
  return found != configurations_.end() && (found->second & att::kNotifications) != 0;
}

std::optional<Bytes> AttServer::notification(std::uint16_t valueHandle, ByteView value) const {
  if (!notifies(valueHandle) || value.size() > largestNotification()) return std::nullopt;
  return ByteWriter()
      .u8(static_cast<unsigned>(Opcode::handleValueNotification))
      .u16(valueHandle)
      .append(value)
      .take();
}

}  // namespace kestrin::vreader
