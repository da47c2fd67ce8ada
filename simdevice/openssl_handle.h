// Owners of OpenSSL's objects, each freed with the library's own function.
#pragma once

#include <memory>

namespace sim
{

template <auto Function>
struct OpensslDeleter {
    template <typename T>
    void operator()(T *object) const
    {
        Function(object);
    }
};

template <typename T, auto Function>
using OpensslHandle = std::unique_ptr<T, OpensslDeleter<Function>>;

} // namespace sim
