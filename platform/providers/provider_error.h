// provider_error.h: why a provider cannot fill the inventory; what() is a sentence for the person at the console.
#pragma once

#include <stdexcept>

namespace kel
{

class ProviderError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace kel
