// xshot: captures a window from the X server as it is shown, writes it as a
// PNG and checks the colours of chosen pixels.
//
//   xshot [--title TITLE] [--timeout SECONDS] [--moving 1] OUT.png [X,Y=RRGGBB ...]
//
// Waits for a window called TITLE (default "Tovix SDL") whose picture holds
// something other than black and has stopped changing (with --moving 1, an
// animated one: the first picture drawn), then captures it.
// Colours are compared in their top 5, 6 and 5 bits, as a 16-bit frame
// carries them. Exit status: 0 all checks hold, 1 a check failed, 2 no
// display, no such window or nothing drawn in time.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <png.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Picture {
    int w = 0, h = 0;
    std::vector<uint32_t> rgb;  // 0xRRGGBB
    bool operator==(const Picture& o) const { return w == o.w && h == o.h && rgb == o.rgb; }
};

Window find_window(Display* d, Window w, const std::string& title) {
    char* name = nullptr;
    if (XFetchName(d, w, &name) && name) {
        const bool match = title == name;
        XFree(name);
        if (match) return w;
    }
    Window root = 0, parent = 0, *kids = nullptr;
    unsigned n = 0;
    if (!XQueryTree(d, w, &root, &parent, &kids, &n)) return 0;
    Window found = 0;
    for (unsigned i = 0; i < n && !found; ++i) found = find_window(d, kids[i], title);
    if (kids) XFree(kids);
    return found;
}

int shift_of(unsigned long mask) {
    int s = 0;
    while (mask && !(mask & 1)) {
        mask >>= 1;
        ++s;
    }
    return s;
}

uint32_t channel(unsigned long px, unsigned long mask) {
    const unsigned long v = (px & mask) >> shift_of(mask);
    const unsigned long max = mask >> shift_of(mask);
    return max ? static_cast<uint32_t>(v * 255 / max) : 0;
}

bool capture(Display* d, Window w, Picture* out) {
    XWindowAttributes a{};
    if (!XGetWindowAttributes(d, w, &a) || a.map_state != IsViewable) return false;
    XImage* img = XGetImage(d, w, 0, 0, static_cast<unsigned>(a.width), static_cast<unsigned>(a.height), AllPlanes, ZPixmap);
    if (!img) return false;
    out->w = a.width;
    out->h = a.height;
    out->rgb.assign(static_cast<size_t>(a.width) * static_cast<size_t>(a.height), 0);
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x) {
            const unsigned long px = XGetPixel(img, x, y);
            out->rgb[static_cast<size_t>(y) * static_cast<size_t>(a.width) + static_cast<size_t>(x)] =
                channel(px, img->red_mask) << 16 | channel(px, img->green_mask) << 8 | channel(px, img->blue_mask);
        }
    XDestroyImage(img);
    return true;
}

bool write_png(const char* path, const Picture& p) {
    std::vector<uint8_t> bytes;
    for (uint32_t c : p.rgb) {
        bytes.push_back(static_cast<uint8_t>(c >> 16));
        bytes.push_back(static_cast<uint8_t>(c >> 8));
        bytes.push_back(static_cast<uint8_t>(c));
    }
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    img.width = static_cast<png_uint_32>(p.w);
    img.height = static_cast<png_uint_32>(p.h);
    img.format = PNG_FORMAT_RGB;
    return png_image_write_to_file(&img, path, 0, bytes.data(), 0, nullptr) != 0;
}

bool drawn(const Picture& p) {
    for (uint32_t c : p.rgb)
        if (c) return true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    std::string title = "Tovix SDL";
    int timeout = 20;
    bool moving = false;
    int i = 1;
    for (; i + 1 < argc && argv[i][0] == '-'; i += 2) {
        if (!std::strcmp(argv[i], "--title"))
            title = argv[i + 1];
        else if (!std::strcmp(argv[i], "--timeout"))
            timeout = std::atoi(argv[i + 1]);
        else if (!std::strcmp(argv[i], "--moving"))
            moving = std::atoi(argv[i + 1]) != 0;
    }
    if (i >= argc) {
        std::fprintf(stderr, "usage: xshot [--title T] [--timeout S] [--moving 1] OUT.png [X,Y=RRGGBB ...]\n");
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
    for (int tries = 0; tries < timeout * 5 && !ok; ++tries) {
        usleep(200000);
        const Window w = find_window(d, DefaultRootWindow(d), title);
        if (!w || !capture(d, w, &now) || !drawn(now)) continue;
        ok = moving || now == last;  // the same picture twice in a row: it is settled
        last = now;
    }
    if (!ok) {
        std::fprintf(stderr, "xshot: no settled picture in a window called \"%s\"\n", title.c_str());
        return 2;
    }
    if (!write_png(out, now)) {
        std::fprintf(stderr, "xshot: cannot write %s\n", out);
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
            continue;
        }
        const uint32_t got = now.rgb[static_cast<size_t>(y) * static_cast<size_t>(now.w) + static_cast<size_t>(x)];
        if ((got & 0xF8FCF8) != (want & 0xF8FCF8)) {
            std::fprintf(stderr, "xshot: pixel %d,%d is %06X, expected %06X\n", x, y, got, want);
            ++failed;
        }
    }
    XCloseDisplay(d);
    return failed ? 1 : 0;
}
