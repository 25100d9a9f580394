#include "tarn/ExceptionParser.h"

#include "LogicAssert.h"

#include <string>
#include <string_view>

#include <boost/type_index.hpp>

namespace tarn {
namespace {

/// The name of the dynamic type as a reader writes it, without the keyword that some compilers
/// put before it.
template <class Exception>
TString ReadableTypeName(const Exception& exception) {
    const std::string name = boost::typeindex::type_id_runtime(exception).pretty_name();
    std::string_view bare = name;
    for (const std::string_view keyword : {"class ", "struct "}) {
        if (bare.substr(0, keyword.size()) == keyword) {
            bare.remove_prefix(keyword.size());
            break;
        }
    }
    return TString::FromUtf8(bare);
}

}  // namespace

ExceptionInfo ExceptionParser::ParseException(const CorvalaException& exception) {
    ExceptionInfo info;
    info.type = ReadableTypeName(exception);
    info.message = exception.GetMessage();
    if (exception.GetErrorCode() != CorvalaError::NoError().GetCode()) {
        exception.GetErrorInfo().GetMembersAsStrings(
            info.infoMember1, info.infoMember2, info.infoMember3);
    }
    return info;
}

ExceptionInfo ExceptionParser::ParseException(const std::exception& exception) {
    if (const auto* const known = dynamic_cast<const CorvalaException*>(&exception)) {
        return ParseException(*known);
    }
    ExceptionInfo info;
    info.type = ReadableTypeName(exception);
    info.message = TString(exception.what());
    return info;
}

ExceptionInfo ExceptionParser::ParseException(const std::exception_ptr& exception) {
    if (exception == nullptr) {
        RaiseLogicAssert("src/cpp/main/ActivityScope", 732, "eptr", 0x5C339EED);
    }
    try {
        std::rethrow_exception(exception);
    } catch (const CorvalaException& known) {
        return ParseException(known);
    } catch (const std::exception& standard) {
        return ParseException(standard);
    } catch (...) {
        ExceptionInfo info;
        info.type = u"Unknown-exception-type";
        info.message = u"Unknown exception caught by catch(...)";
        return info;
    }
}

}  // namespace tarn
