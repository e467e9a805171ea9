#define MODULE "A"
#define OWN OfA
#include "RegistryModule.hpp"
