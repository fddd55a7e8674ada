#pragma once

namespace spectral {

constexpr char kLayeredTag[] = "ilsservice-driver";

}  // namespace spectral
