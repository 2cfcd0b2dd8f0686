// What a call raises.

#pragma once

#include <exception>
#include <optional>
#include <string>

// The text of the std::exception that `call` raises, "(nothing)" if it returns.
template <class Call>
std::string raisedText(Call call) {
    try {
        call();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "(nothing)";
}

// The exception of type Error that `call` raises, if it does.
template <class Error, class Call>
std::optional<Error> raised(Call call) {
    try {
        call();
    } catch (const Error& failure) {
        return failure;
    }
    return std::nullopt;
}
