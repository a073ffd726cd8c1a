/*
 * The current view of one family and when it is to be made anew.
 */
#ifndef DAEMONS_MRIBD_CURRENT_VIEW_H
#define DAEMONS_MRIBD_CURRENT_VIEW_H

#include <optional>

#include "daemons/mribd/routers.h"
#include "daemons/mribd/view.h"

namespace mribd
{

class CurrentView
{
public:
    // routers must outlive the object.
    explicit CurrentView(const Routers &routers);

    void configure(const Config &config);

    // To be called when designated routers, interfaces or their names changed.
    void touch()
    {
        stale_ = true;
    }

    // Makes the view anew after configure and touch. The view before, when it differs.
    std::optional<View> refresh();

    const View &view() const
    {
        return view_;
    }

    const Config &config() const
    {
        return config_;
    }

private:
    const Routers &routers_;
    Config config_;
    View view_;
    bool stale_ = true;
};

} // namespace mribd

#endif
