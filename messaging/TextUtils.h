// Text utilities shared by the vCenter and the vShield sessions.
#pragma once
#include <string>
#include <vector>

namespace Harbec {

// Appends to tokens every maximal run of characters of s that are not in
// delimiters, in order. Runs of delimiters yield no empty token.
void split(const std::string& s, const std::string& delimiters, std::vector<std::string>& tokens);

// The words of s joined with one blank between them. Only the blank counts
// as a separator: tabs and line breaks stay inside words.
std::string stripExtraWhiteSpace(const std::string& s);

// "HTTP 503 Service Unavailable"; the bare number for a status without a
// common reason phrase.
std::string httpStatusLine(long code);

}  // namespace Harbec
