// SPDX-License-Identifier: Apache-2.0
//
// A request and its reply, as the host hands them to a request handler: both generations of the
// interface, and the method numbers.
#pragma once

#include <kest/host/io_3.h>
#include <kest/host/io_5.h>
#include <kest/host/methods.h>
