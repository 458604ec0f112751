// The commissioning page: plain HTML, CSS and a little JavaScript, with no external resources.
#pragma once

namespace VantrelNetd
{

/// The page's text. Stateless.
class WebPage
{
public:
    static const char* Html();
};

} // namespace VantrelNetd
