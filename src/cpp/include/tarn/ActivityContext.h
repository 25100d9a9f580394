#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <utility>

namespace tarn {

/// The identity of one activity. It never changes, is shared by `std::shared_ptr`, and may be
/// read on any number of threads. Texts of ids are made anew each time they are asked for.
class TARN_EXPORT ActivityContext {
public:
    /// A fresh root: request id "-", one new id as activity, root and sponsor, depths 0.
    ActivityContext();

    /// Mind the order: the root comes before the activity.
    ActivityContext(TString requestId,
                    TString rootId,
                    TString activityId,
                    TString sponsorId,
                    int traceDepth,
                    int serviceDepth);

    /// A child: a new id under the same root, sponsored by the parent, request id "-".
    struct ChildOf {
        const ActivityContext& parent;
        int traceDepth;
        int serviceDepth;
    };

    explicit ActivityContext(const ChildOf& child);

    TString GetRequestId() const { return m_requestId; }

    TString GetActivityId() const { return TextOf(m_activityId); }

    TString GetRootId() const { return TextOf(m_rootId); }

    /// The activity that this one was started by; its own id at a root.
    TString GetSponsorId() const { return TextOf(m_sponsorId); }

    /// How deep the activity lies in its tree.
    int GetTraceDepth() const noexcept { return m_traceDepth; }

    /// The same across services.
    int GetServiceDepth() const noexcept { return m_serviceDepth; }

    /// A new activity id: random while foreground thread contexts are enabled, else always the
    /// same fixed id.
    static TString NewTarnId();

private:
    friend class ActivityScope;
    friend class IdText;

    // One that was made here; or nil, with a text that was given and is kept as it is.
    struct Id {
        explicit Id(const TUUID& id) noexcept : made(id) {}

        explicit Id(TString text) noexcept : given(std::move(text)) {}

        TUUID made;
        TString given;
    };

    static TString TextOf(const Id& id);

    const TString m_requestId;
    const Id m_activityId;
    const Id m_rootId;
    const Id m_sponsorId;
    const int32 m_traceDepth;
    const int32 m_serviceDepth;
};

/// Where the context of a new scope comes from.
struct ActivityContextInitializer {
    /// May be null: the scope then starts a fresh tree.
    std::shared_ptr<ActivityContext> parent;

    /// True: the scope takes over the parent's ids and depths. False: it becomes its child.
    bool adopt = false;
};

}  // namespace tarn
