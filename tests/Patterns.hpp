#pragma once

/// @file
/// Regular expressions for tests: the standard ones, compiled in one source only.

#include <string>

/// Whether the whole @p text matches @p pattern.
bool matches(const std::string& text, const std::string& pattern);

/// How many pieces of @p text match @p pattern.
int countOf(const std::string& text, const std::string& pattern);

/// The first group of @p pattern, which the whole @p text matches; empty when it does not.
std::string groupOf(const std::string& text, const std::string& pattern);
