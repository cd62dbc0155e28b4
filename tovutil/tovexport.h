/// TOV_EXPORT marks what the shared library exports; everything else is hidden.
#pragma once

#define TOV_EXPORT [[gnu::visibility("default")]]
