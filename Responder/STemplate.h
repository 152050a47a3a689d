#pragma once

#include <string>
#include <string_view>

/// The text of an automatic reply, as its owner wrote it: header lines of their own, if the file begins with one of
/// Subject, From, Reply-To, Organization or Content-Type, up to a blank line; then the body. Values may be empty.
struct STemplate
{
    std::string strSubject;
    std::string strFrom;
    std::string strReplyTo;
    std::string strOrganization;
    std::string strContentType;
    std::string strBody;

    static STemplate Parse(std::string_view text);
};
