// SPDX-License-Identifier: Apache-2.0
//
// User sessions: what an SCHANDLE stands for, how long it lives, and where services keep what they
// hold per session.
//
// An SCHANDLE is a number, never an address: a handle that was made up or has ended is found out by
// looking it up. The places that sessions take are used again and freed only with the table, so a
// service may keep a Session* as long as the table lives; it locks the session and compares the
// number before it believes that the session is still the same one.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/auth/clock.h"
#include "host/config/auth_settings.h"
#include <kest/types.h>

namespace kestd {

class AccessRules; // host/access

// Who a session belongs to. Immutable once made.
struct Principal {
    std::string name;       // empty for the local user
    std::string dottedName; // directory name, UTF-8, such as "CN=admin.O=org"; empty for none
    std::string tree;       // the directory tree; empty for none
    std::string mail;       // empty for none
    // Name and credentials in one text that says nothing about the password. Principals with equal
    // keys share a session.
    std::string key;
    std::vector<std::string> groups{}; // that the sign-in has told of, in lower case
    std::string source{};              // name of the credentials source; empty for the local user
    std::string appPassword{};         // identifier of the app password that was shown, or empty
    std::shared_ptr<const AccessRules> limits{}; // of that; null: none
};

struct AttributeBlock; // attributes.cpp
struct StoredObject;   // object_store.cpp
class ObjectStore;

// The objects of one store in one session: an intrusive list, the most recently used first.
struct ObjectList {
    ObjectStore* store = nullptr;
    StoredObject* first = nullptr;
    StoredObject* last = nullptr;
    uint32_t count = 0;
};

struct Session {
    enum class State {
        Free,
        Active,
        Ending // services clean up: found by services, not by requests
    };

    std::mutex mutex;                    // guards everything below
    std::condition_variable accessGiven; // an attribute's access was given back
    uint64_t number = 0;                 // 0 when free
    State state = State::Free;
    bool isDoomed = false; // ends as soon as no request holds it
    uint32_t holds = 0;    // running requests
    TimePoint lastUsed;
    std::shared_ptr<const Principal> principal;
    std::string cookie;                      // empty for a shared session
    std::vector<AttributeBlock*> attributes; // owned by the attribute service
    std::vector<ObjectList> objects;         // owned by the object stores
};

class SessionTable {
  public:
    SessionTable(const SessionLimits& limits, const Clock& clock);
    ~SessionTable(); // every session has ended (EndAll)
    SessionTable(const SessionTable&) = delete;
    SessionTable& operator=(const SessionTable&) = delete;

    // Called for each session that ends, in the order of registration, without a lock held.
    // Register before the first session is made.
    void OnEnd(std::function<void(SCHANDLE)> listener);
    void SetLimits(const SessionLimits& limits); // for later decisions; `sessions` stays
    std::chrono::seconds IdleTime() const;

    // The session that clients without cookies share, made when there is none, and held. A handle
    // with a null number when the table is full of sessions in use.
    SCHANDLE HoldShared(const std::shared_ptr<const Principal>& principal);
    // The session that `cookie` names, held, if it belongs to `principal`; else null.
    SCHANDLE HoldByCookie(const std::shared_ptr<const Principal>& principal,
                          std::string_view cookie);
    // A new session for a browser, held, whose cookie goes to `cookie` (32 hexadecimal digits).
    // Null, and no cookie, when the table is full of sessions in use.
    SCHANDLE HoldNew(const std::shared_ptr<const Principal>& principal, std::string& cookie);
    // Holds a session that is still alive and used by requests.
    bool Hold(SCHANDLE session);
    // The request is over.
    void ReleaseSession(SCHANDLE session);

    // A session locked for a service; `session` is null when it has ended.
    struct Locked {
        std::unique_lock<std::mutex> lock;
        Session* session = nullptr;
        explicit operator bool() const { return session != nullptr; }
        Session* operator->() const { return session; }
    };
    Locked Lock(SCHANDLE handle);
    // Null when the session has ended.
    std::shared_ptr<const Principal> PrincipalOf(SCHANDLE handle);
    static SCHANDLE HandleOf(uint64_t number); // null for 0
    static uint64_t NumberOf(SCHANDLE handle); // 0 for what is no session of this host

    // Ends the sessions that nobody used for the idle time, and the doomed ones.
    void EndIdle();
    // Ends the sessions of principals that `isGone` names, those in use as soon as they are left.
    void EndWhere(const std::function<bool(const Principal&)>& isGone);
    // Ends every session, for shutdown: no request runs any more.
    void EndAll();

    size_t Count() const;
    // Calls `visit` for every place with its lock held, also for those that are free.
    void ForEachPlace(const std::function<void(Session&)>& visit);

  private:
    SCHANDLE MakeRoomFor(const std::function<SCHANDLE(std::vector<SCHANDLE>& ended)>& take);
    SCHANDLE MakeHeld(const std::shared_ptr<const Principal>& principal, std::string cookie);
    bool TakePlace(uint32_t& place);
    void CloseOldest(std::vector<SCHANDLE>& ended);
    void CloseOldestCookie(const std::vector<uint64_t>& numbers, std::vector<SCHANDLE>& ended);
    bool CloseLocked(Session& session, std::vector<SCHANDLE>& ended);
    void Finish(const std::vector<SCHANDLE>& ended);
    Session* PlaceOf(uint64_t number) const;

    const Clock& clock_;
    const uint32_t capacity_;
    std::unique_ptr<std::atomic<Session*>[]> places_; // read without a lock
    std::vector<std::function<void(SCHANDLE)>> listeners_;

    mutable std::mutex mutex_; // taken before a session's
    SessionLimits limits_;
    std::vector<uint32_t> freePlaces_;
    uint32_t madePlaces_ = 0;
    uint64_t generation_ = 0;
    size_t count_ = 0;
    std::unordered_map<std::string, uint64_t> shared_;  // principal's key to number
    std::unordered_map<std::string, uint64_t> cookies_; // cookie to number
    std::unordered_map<std::string, std::vector<uint64_t>> cookieSessions_; // by principal's key
};

} // namespace kestd
