#include "display/present.h"

#include "vm/machine.h"

void present_frame(Machine& m) {
    auto f = std::make_shared<Frame>();
    snapshot_frame(m, f.get());
    f->number = ++m.frame_number;
    f->grid = m.use_grid != 0;
    f->clean = m.need_clean != 0;
    f->dirty_marks = m.dirty_marks;
    m.need_clean = 0;
    m.need_refresh = 0;
    m.frame = std::move(f);
}

void HardwareRefresh(Machine& m) {
    present_frame(m);
    if (m.stop == Stop::None || m.stop == Stop::Busy) m.stop = Stop::Frame;
}
