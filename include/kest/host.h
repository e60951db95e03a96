// SPDX-License-Identifier: Apache-2.0
//
// Services of the host process, created with TolmCreateInstance and callable from any thread. One
// interface per header below host/; this one includes them all.
#pragma once

#include <kest/host/access.h>
#include <kest/host/attributes.h>
#include <kest/host/call_context.h>
#include <kest/host/config.h>
#include <kest/host/digest.h>
#include <kest/host/event.h>
#include <kest/host/event_handler.h>
#include <kest/host/interim_reply.h>
#include <kest/host/objects.h>
#include <kest/host/send_file.h>
#include <kest/host/session.h>
#include <kest/host/util.h>
#include <kest/io.h>
