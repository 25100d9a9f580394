#include "FormedEvent.h"

#include "PlainText.h"
#include "UuidText.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/host/RecycledBlocks.h"

#include <algorithm>
#include <utility>

namespace TLog {
namespace {

/// What a value takes, about.
std::size_t CountBytesOf(const std::shared_ptr<Value>& value) {
    // Of an object on the heap, and of an entry of a table.
    constexpr std::size_t object = 96;
    constexpr std::size_t entry = 64;
    if (value == nullptr) {
        return 0;
    }
    std::size_t bytes = object;
    if (value->GetKind() == ValueKind::Literal) {
        bytes += static_cast<const Literal&>(*value).GetString().View().size() * sizeof(char16_t);
    } else if (value->GetKind() == ValueKind::Array) {
        for (const auto& item : static_cast<const Array&>(*value).GetItems()) {
            bytes += CountBytesOf(item);
        }
    } else {
        for (const auto& [name, field] : static_cast<const Object&>(*value).GetFields()) {
            bytes += entry + name.View().size() * sizeof(char16_t) + CountBytesOf(field);
        }
    }
    return bytes;
}

}  // namespace

FormedEvent::FormedEvent(const std::shared_ptr<const Form>& form,
                         EventHead head,
                         const SlotValue* values)
    : EventFields([](const EventFields& fields) {
          return static_cast<const FormedEvent&>(fields).ToValues();
      }),
      time(head.time),
      processId(head.processId),
      threadId(head.threadId),
      m_form(form) {
    m_name = std::move(head.name);
    m_values = m_memory.Take<StoredValue>(form->GetSlots().size());
    StoredValue* to = m_values;
    for (const FieldKind kind : form->GetSlots()) {
        *to++ = Store(kind, *values++);
    }
}

inline char* FormedEvent::TakeForText(std::size_t length) {
    m_textBytes += length;
    return m_memory.Take<char>(length);
}

inline StoredText FormedEvent::Copy(TextView text) {
    if (text.IsUtf8()) {
        const std::string_view utf8 = text.GetUtf8();
        char* const plain = TakeForText(utf8.size());
        if (host::CopyPlain(utf8, plain)) {
            return StoredText(host::PaddedText(plain, utf8.size()));
        }
        return CopyUnits(TString::FromUtf8(utf8).View());
    }
    const std::u16string_view units = text.GetUtf16();
    char* const plain = TakeForText(units.size());
    if (host::CopyPlain(units, plain)) {
        return StoredText(host::PaddedText(plain, units.size()));
    }
    return CopyUnits(units);
}

StoredText FormedEvent::CopyUnits(std::u16string_view units) {
    auto* const copy = m_memory.Take<char16_t>(units.size());
    std::copy(units.begin(), units.end(), copy);
    return StoredText(std::u16string_view(copy, units.size()));
}

inline StoredText FormedEvent::Copy(const TUUID& id) {
    char* const plain = TakeForText(cvlcoreplatform::uuidTextLength);
    cvlcoreplatform::WriteUuid(id, plain);
    return StoredText(host::PaddedText(plain, cvlcoreplatform::uuidTextLength));
}

inline StoredValue FormedEvent::Store(FieldKind kind, const SlotValue& value) {
    switch (kind) {
        case FieldKind::Text:
            return {.text = Copy(value.text)};
        case FieldKind::Uuid:
            return {.text = Copy(*value.id)};
        case FieldKind::FreshRequest:
            return {.text = Copy(TUUID::CreateUUID())};
        case FieldKind::Real:
            return {.real = value.real};
        case FieldKind::Value:
            m_shared.push_back(*value.value);
            return {.shared = m_shared.size() - 1};
        default:
            return {.integer = value.integer};
    }
}

std::size_t FormedEvent::CountBytes() const {
    std::size_t bytes = cvlsys::hugeBlock + m_memory.CountHeapBytes();
    for (const std::shared_ptr<Value>& value : m_shared) {
        bytes += CountBytesOf(value);
    }
    return bytes;
}

Event MakeEvent(const std::shared_ptr<const Form>& form, EventHead head, const SlotValue* values) {
    return Event(cvlsys::MakeRecycled<const FormedEvent>(form, std::move(head), values));
}

}  // namespace TLog
