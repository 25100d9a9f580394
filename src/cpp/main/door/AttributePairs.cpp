#include "AttributePairs.h"

#include <limits>
#include <string_view>
#include <utility>

namespace tarn::abi {

/// Takes what a converter gives.
struct tarn_receiver {  // NOLINT(readability-identifier-naming): named in C
    std::string text;
    bool hasRunOutOfMemory = false;
};

void tarn_receive(tarn_receiver* receiver, const char* text, std::size_t length) noexcept {
    if (receiver == nullptr || text == nullptr) {
        return;
    }
    try {
        receiver->text.assign(text, length);
    } catch (...) {
        // The converter goes on; its caller tells.
        receiver->hasRunOutOfMemory = true;
    }
}

}  // namespace tarn::abi

namespace tarn {
namespace {

using Metrics::ValueView;

std::string_view ViewOf(const char* text, std::size_t length) noexcept {
    if (text == nullptr) {
        return {};
    }
    return length == TARN_TO_NUL ? std::string_view(text) : std::string_view(text, length);
}

/// A code point in UTF-8; the replacement character if `point` is no code point.
std::string Encoded(uint64 point) {
    if (point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
        point = 0xFFFD;
    }
    const auto tail = [point](unsigned shift) {
        return static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
    };
    if (point < 0x80) {
        return {static_cast<char>(point)};
    }
    if (point < 0x800) {
        return {static_cast<char>(0xC0U | (point >> 6U)), tail(0)};
    }
    if (point < 0x10000) {
        return {static_cast<char>(0xE0U | (point >> 12U)), tail(6), tail(0)};
    }
    return {static_cast<char>(0xF0U | (point >> 18U)), tail(12), tail(6), tail(0)};
}

}  // namespace

Metrics::NameValueList AttributePairs::ToList() const {
    Metrics::NameValueList list;
    list.reserve(Size());
    const PairBuffer pairs(*this);
    for (const Metrics::PairView& pair : pairs.Span()) {
        list.emplace_back(pair.name.ToValue(), pair.value.ToValue());
    }
    return list;
}

void AttributePairs::MakePairs(const PairSource& source, Metrics::PairView* room) {
    const auto& pairs = static_cast<const AttributePairs&>(source);
    const abi::tarn_attribute* const end = pairs.m_first + pairs.Size();
    for (const abi::tarn_attribute* next = pairs.m_first; next != end; ++next, ++room) {
        const ValueView name = ValueView::OfUtf8(ViewOf(next->key, next->key_length));
        if (next->type == abi::TARN_TEXT) {
            new (static_cast<void*>(room)) Metrics::PairView(
                name, ValueView::OfUtf8(ViewOf(next->value.text, next->more.length)));
        } else if (next->type == abi::TARN_INTEGER) {
            new (static_cast<void*>(room)) Metrics::PairView(name, next->value.integer);
        } else {
            new (static_cast<void*>(room)) Metrics::PairView(name, pairs.MakeUncommonValue(*next));
        }
    }
}

ValueView AttributePairs::MakeUncommonValue(const abi::tarn_attribute& attribute) const {
    switch (attribute.type) {
        case abi::TARN_NATURAL:
            // The bus has signed integers only.
            if (attribute.value.natural > static_cast<uint64>(std::numeric_limits<int64>::max())) {
                return Keep(std::to_string(attribute.value.natural));
            }
            return attribute.value.natural;
        case abi::TARN_REAL:
            return attribute.value.real;
        case abi::TARN_BOOLEAN:
            return attribute.value.integer != 0;
        case abi::TARN_CHARACTER:
            return Keep(Encoded(attribute.value.natural));
        case abi::TARN_CONVERTED: {
            abi::tarn_receiver receiver;
            if (attribute.more.convert != nullptr) {
                attribute.more.convert(attribute.value.object, &receiver);
            }
            if (receiver.hasRunOutOfMemory) {
                throw std::bad_alloc();
            }
            return Keep(std::move(receiver.text));
        }
        default:
            // Of a newer header; the name alone tells that there was something.
            return ValueView::OfUtf8({});
    }
}

ValueView AttributePairs::Keep(std::string&& text) const {
    m_texts.push_front(std::move(text));
    return ValueView::OfUtf8(m_texts.front());
}

}  // namespace tarn
