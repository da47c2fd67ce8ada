// RSA keys of simulated devices.
#pragma once

#include <string>

namespace sim
{

// A 2048-bit RSA private key in PEM form that depends on nothing but `seed`, so
// that a sample device comes out the same every time. Good for tests, and for
// nothing that has to stay secret. Empty on failure.
std::string makeDeviceKey(const std::string &seed);

// The public half as "-----BEGIN RSA PUBLIC KEY-----", which is how a device
// tells it. Empty if `privatePem` is no RSA key.
std::string publicKeyPem(const std::string &privatePem);

} // namespace sim
