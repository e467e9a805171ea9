#define MODULE "B"
#define OWN OfB
#include "RegistryModule.hpp"
