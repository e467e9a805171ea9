#pragma once

/// @file
/// What the host and its modules share of the library `fieldsdata`.

#if defined(_WIN32)
#if defined(FIELDSDATA_BUILDING)
#define FIELDS_API __declspec(dllexport)
#else
#define FIELDS_API __declspec(dllimport)
#endif
#else
#define FIELDS_API __attribute__((visibility("default")))
#endif
