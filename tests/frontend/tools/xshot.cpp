// xshot: captures the window called "Tovix SDL" from the X server as it is
// shown, writes it as a PNG and checks the colours of chosen pixels.
//
//   xshot OUT.png [X,Y=RRGGBB ...]
//
// Waits up to 20 s for a picture that holds something other than black and
// has stopped changing. Colours are compared in their top 5, 6 and 5 bits, as a 16-bit
// frame carries them. Exit status: 0 all checks hold, 1 a check failed, 2 no
// display, no such window or nothing drawn in time.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Picture {
    int w = 0, h = 0;
    std::vector<uint8_t> rgb;  // three bytes a pixel
    bool operator==(const Picture&) const = default;
    uint32_t at(int x, int y) const {
        const uint8_t* p = &rgb[3 * (size_t(y) * size_t(w) + size_t(x))];
        return uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | uint32_t(p[2]);
    }
};

Window find_window(Display* d, Window w) {
    char* name = nullptr;
    if (XFetchName(d, w, &name) && name) {
        const bool match = std::strcmp(name, "Tovix SDL") == 0;
        XFree(name);
        if (match) return w;
    }
    Window root = 0, parent = 0, *kids = nullptr, found = 0;
    unsigned n = 0;
    if (!XQueryTree(d, w, &root, &parent, &kids, &n)) return 0;
    for (unsigned i = 0; i < n && !found; ++i) found = find_window(d, kids[i]);
    if (kids) XFree(kids);
    return found;
}

// The window's pixels; Xvfb's 24-bit visual keeps 8 bits a channel.
bool capture(Display* d, Window w, Picture* out) {
    XWindowAttributes a{};
    if (!XGetWindowAttributes(d, w, &a) || a.map_state != IsViewable) return false;
    XImage* img = XGetImage(d, w, 0, 0, unsigned(a.width), unsigned(a.height), AllPlanes, ZPixmap);
    if (!img) return false;
    const bool rgb888 = img->red_mask == 0xFF0000 && img->green_mask == 0xFF00 && img->blue_mask == 0xFF;
    *out = {a.width, a.height, {}};
    for (int y = 0; y < a.height && rgb888; ++y)
        for (int x = 0; x < a.width; ++x)
            for (int shift : {16, 8, 0}) out->rgb.push_back(uint8_t(XGetPixel(img, x, y) >> shift));
    XDestroyImage(img);
    return rgb888;
}

}  // namespace

int main(int argc, char** argv) {
    int i = 1;
    if (argc < 2) {
        std::fprintf(stderr, "usage: xshot OUT.png [X,Y=RRGGBB ...]\n");
        return 2;
    }
    const char* out = argv[i++];
    Display* d = XOpenDisplay(nullptr);
    if (!d) {
        std::fprintf(stderr, "xshot: no X display\n");
        return 2;
    }
    // Windows come and go while the tree is walked (SDL makes short-lived
    // ones at start-up); a request on a vanished window fails and is retried
    // on the next pass instead of ending the program.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    Picture last, now;
    bool ok = false;
    for (int tries = 0; tries < 100 && !ok; ++tries) {
        usleep(200000);
        const Window w = find_window(d, DefaultRootWindow(d));
        if (!w || !capture(d, w, &now) || std::all_of(now.rgb.begin(), now.rgb.end(), [](uint8_t c) { return !c; }))
            continue;
        ok = now == last;  // the same picture twice in a row: it is settled
        last = now;
    }
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    img.width = png_uint_32(now.w);
    img.height = png_uint_32(now.h);
    img.format = PNG_FORMAT_RGB;
    if (!ok || !png_image_write_to_file(&img, out, 0, now.rgb.data(), 0, nullptr)) {
        std::fprintf(stderr, ok ? "xshot: cannot write %s\n" : "xshot: no settled picture for %s\n", out);
        return 2;
    }
    std::printf("%s: %dx%d\n", out, now.w, now.h);
    int failed = 0;
    for (; i < argc; ++i) {
        int x = 0, y = 0;
        unsigned want = 0;
        if (std::sscanf(argv[i], "%d,%d=%x", &x, &y, &want) != 3 || x < 0 || y < 0 || x >= now.w || y >= now.h) {
            std::fprintf(stderr, "xshot: bad check %s\n", argv[i]);
            ++failed;
        } else if (const uint32_t got = now.at(x, y); (got & 0xF8FCF8) != (want & 0xF8FCF8)) {
            std::fprintf(stderr, "xshot: pixel %d,%d is %06X, expected %06X\n", x, y, got, want);
            ++failed;
        }
    }
    XCloseDisplay(d);
    return failed ? 1 : 0;
}
