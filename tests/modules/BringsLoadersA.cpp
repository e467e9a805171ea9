#define MODULE "A"
#include "RegistryModule.hpp"
