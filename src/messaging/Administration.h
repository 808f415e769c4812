// The operations that administer the remote storage: buckets, objects, keys.
#pragma once

#include "messaging/AdminRequests.h"
#include "messaging/RequestTable.h"
#include "support/JSON.h"

#include <functional>

namespace brindlemar {

/// One-shot requests. The handler gets the host's answer as it stands, or an empty text and an error; where and when
/// follows the row of kAdminRequests and the rules of BxMessages. Identifiers are the host's own item IDs; the
/// platform's root container identifier stands for the host's root. Thread-safe.
class Administration {
public:
    using TextHandler = std::function<void(Payload reply, std::optional<NSError> error)>;

    struct Item {
        std::string forIdentifier, withDomain;
    };
    struct Policy {
        std::string forIdentifier, policy, withDomain;
    };
    struct Replication {
        std::string forIdentifier, replication, withDomain;
    };
    struct CORS {
        std::string forIdentifier, cors, withDomain;
    };
    struct Lifecycle {
        std::string forIdentifier, lifecycle, withDomain;
    };
    struct Switch {
        std::string forIdentifier;
        bool enable = false;
        std::string withDomain;
    };
    struct Encryption {
        std::string forIdentifier, encryptionType, encryptionKeyID, withDomain;
    };
    struct Bucket {
        std::string name, region, withDomain;
    };
    struct URLRequest {
        std::string forIdentifier, expiration, withDomain;
    };
    struct Restore {
        std::string forIdentifier, tier, days, withDomain;
    };
    struct StorageClass {
        std::string forIdentifier, storageClass, withDomain;
    };
    struct Keys {
        std::string theIdentifier, withDomain;
    };

    void getACL(const Item& r, TextHandler h) { about<AdminRequest::getACL>(r, h); }
    void getBucketPolicy(const Item& r, TextHandler h) { about<AdminRequest::getBucketPolicy>(r, h); }
    void setBucketPolicy(const Policy& r, TextHandler h) { about<AdminRequest::setBucketPolicy>(r, h, r.policy); }
    void getBucketReplication(const Item& r, TextHandler h) { about<AdminRequest::getBucketReplication>(r, h); }
    void setBucketReplication(const Replication& r, TextHandler h) {
        about<AdminRequest::setBucketReplication>(r, h, r.replication);
    }
    void getBucketCORS(const Item& r, TextHandler h) { about<AdminRequest::getBucketCORS>(r, h); }
    void setBucketCORS(const CORS& r, TextHandler h) { about<AdminRequest::setBucketCORS>(r, h, r.cors); }
    void getBucketLifecycle(const Item& r, TextHandler h) { about<AdminRequest::getBucketLifecycle>(r, h); }
    void setBucketLifecycle(const Lifecycle& r, TextHandler h) {
        about<AdminRequest::setBucketLifecycle>(r, h, r.lifecycle);
    }
    void getBucketVersioning(const Item& r, TextHandler h) { about<AdminRequest::getBucketVersioning>(r, h); }
    void setBucketVersioning(const Switch& r, TextHandler h) {
        about<AdminRequest::setBucketVersioning>(r, h, r.enable);
    }
    void getBucketAcceleration(const Item& r, TextHandler h) { about<AdminRequest::getBucketAcceleration>(r, h); }
    void setBucketAcceleration(const Switch& r, TextHandler h) {
        about<AdminRequest::setBucketAcceleration>(r, h, r.enable);
    }
    void getBucketEncryption(const Item& r, TextHandler h) { about<AdminRequest::getBucketEncryption>(r, h); }
    void setBucketEncryption(const Encryption& r, TextHandler h) {
        about<AdminRequest::setBucketEncryption>(r, h, r.encryptionType, r.encryptionKeyID);
    }
    void getBucketLogging(const Item& r, TextHandler h) { about<AdminRequest::getBucketLogging>(r, h); }
    void signURL(const Item& r, TextHandler h) { about<AdminRequest::signURL>(r, h); }
    void createBucket(const Bucket& r, TextHandler h) {
        send<AdminRequest::createBucket>(r.withDomain, h, r.name, r.region);
    }
    void getObjectMetadata(const Item& r, TextHandler h) { about<AdminRequest::getObjectMetadata>(r, h); }
    void getObjectURL(const URLRequest& r, TextHandler h) { about<AdminRequest::getObjectURL>(r, h, r.expiration); }
    void initiateGlacierRestore(const Restore& r, TextHandler h) {
        about<AdminRequest::initiateGlacierRestore>(r, h, r.tier, r.days);
    }
    void setObjectEncryption(const Encryption& r, TextHandler h) {
        about<AdminRequest::setObjectEncryption>(r, h, r.encryptionType, r.encryptionKeyID);
    }
    void setObjectStorageClass(const StorageClass& r, TextHandler h) {
        about<AdminRequest::setObjectStorageClass>(r, h, r.storageClass);
    }
    void listKMS(const Keys& r, TextHandler h) { send<AdminRequest::listKMS>(r.withDomain, h, r.theIdentifier); }
    void listKMSKeys(const Keys& r, TextHandler h) {
        send<AdminRequest::listKMSKeys>(r.withDomain, h, r.theIdentifier);
    }
    /// Not offered: sends nothing, never calls the handler, and says so with server-unreachable.
    [[nodiscard]] NSError getBuckets(const std::string& withDomain, TextHandler completionHandler) const;

    /// Any row, for callers that have the values by name; one value for each key of the row.
    virtual void administer(const RequestRow& row, const std::string& withDomain, std::vector<JSON> values,
                            TextHandler completionHandler) = 0;

protected:
    ~Administration() = default;

private:
    template <AdminRequest Request, class... Values>
    void send(const std::string& domain, TextHandler& handler, const Values&... values) {
        constexpr const RequestRow& row = kAdminRequests[static_cast<std::size_t>(Request)];
        static_assert(sizeof...(Values) == row.keys.count, "one value for each key of the row");
        administer(row, domain, {JSON(values)...}, std::move(handler));
    }
    template <AdminRequest Request, class Arguments, class... Values>
    void about(const Arguments& request, TextHandler& handler, const Values&... values) {
        send<Request>(request.withDomain, handler, request.forIdentifier, values...);
    }
};

inline NSError Administration::getBuckets(const std::string&, TextHandler) const { return serverUnreachable(); }

} // namespace brindlemar
