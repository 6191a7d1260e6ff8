// Export attribute of the engine library's classes and functions.
#pragma once

#ifndef KZLIB_API
#ifdef _WIN32
#ifdef KZLIB_BUILDING
#define KZLIB_API __declspec(dllexport)
#else
#define KZLIB_API __declspec(dllimport)
#endif
#else
#define KZLIB_API __attribute__((visibility("default")))
#endif
#endif
