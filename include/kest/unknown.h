// SPDX-License-Identifier: Apache-2.0
//
// The base of every interface, and the class factory that a component library exports.
#pragma once

#include <kest/class_factory.h>
#include <kest/iunknown.h>
