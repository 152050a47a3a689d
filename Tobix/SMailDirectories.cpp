#include "Tobix/SMailDirectories.h"

#include "Common/Globals.h"

SMailDirectories SMailDirectories::FromConfiguration()
{
    return {Config().GetPath(Keys::QUEUE_DIR), Config().GetPath(Keys::ERROR_DIR), Config().GetPath(Keys::FILTER_DIR),
            Config().GetPath(Keys::OUTGOING_DIR), Config().GetPath(Keys::INTERCEPT_DIR)};
}
