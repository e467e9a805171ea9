#pragma once

// What nearly every test includes; a precompiled header halves the time to build them.
#include <algorithm>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>
