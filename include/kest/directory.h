// SPDX-License-Identifier: Apache-2.0
//
// The directory service: names and attributes of users. One interface per header below directory/.
#pragma once

#include <kest/directory/attribute_values.h>
#include <kest/directory/directory.h>
#include <kest/directory/directory_object.h>
