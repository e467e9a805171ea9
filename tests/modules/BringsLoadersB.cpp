#define MODULE "B"
#include "RegistryModule.hpp"
