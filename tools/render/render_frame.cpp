// Draws a frame of the scene as the head sees it, with cairo: sky and ground
// at the horizon, the compass posts, the landmarks, the person, the centre
// mark and the camera's overlay texts.
#include <cairo.h>

#include <algorithm>
#include <cmath>

#include "render/scene.h"

namespace render {
namespace {

constexpr double kRad = M_PI / 180;
constexpr double kMastHeight = 6;  // metres of the head above the ground, for the person's size
const char* const kCompass[8] = {"East", "North-East", "North", "North-West",
                                 "West", "South-West", "South", "South-East"};

// Canvas size and the scale of lines and texts (1 at 360 rows).
struct Canvas {
  cairo_t* cr;
  double w, h, scale;
};

// Sets a colour from 0xRRGGBB.
void colour(cairo_t* cr, unsigned rgb) {
  cairo_set_source_rgb(cr, ((rgb >> 16) & 255) / 255.0, ((rgb >> 8) & 255) / 255.0, (rgb & 255) / 255.0);
}

// A direction's point in pixels, or none behind the camera. Points far out
// of the picture are held within cairo's fixed-point range.
std::optional<Point> at(const Canvas& c, const View& view, double pan, double tilt) {
  std::optional<Point> p = project(pan, tilt, view);
  const double limit = 64 * (c.w + c.h);
  if (p) *p = Point{std::clamp(p->x / 10000 * c.w, -limit, limit), std::clamp(p->y / 10000 * c.h, -limit, limit)};
  return p;
}

// Sky and ground, split along the horizon.
void draw_horizon(const Canvas& c, const View& view) {
  cairo_t* cr = c.cr;
  colour(cr, 0xa9cbe8);
  cairo_paint(cr);
  auto a = at(c, view, view.pan - 30, 0), b = at(c, view, view.pan + 30, 0);
  auto below = at(c, view, view.pan, std::min(view.tilt + 30, 89.0));
  colour(cr, 0x86a86a);
  if (!a || !b) {
    if (view.tilt > 0) cairo_paint(cr);
    return;
  }
  // The half plane of the horizon line on the side of a point below it.
  double dx = b->x - a->x, dy = b->y - a->y, len = std::hypot(dx, dy);
  if (len == 0) len = 1;
  double nx = -dy / len, ny = dx / len;
  if (below && (below->x - a->x) * nx + (below->y - a->y) * ny < 0) nx = -nx, ny = -ny;
  double far = 4 * (c.w + c.h), ux = dx / len, uy = dy / len;
  cairo_move_to(cr, a->x - ux * far, a->y - uy * far);
  cairo_line_to(cr, a->x + ux * far, a->y + uy * far);
  cairo_line_to(cr, a->x + ux * far + nx * far, a->y + uy * far + ny * far);
  cairo_line_to(cr, a->x - ux * far + nx * far, a->y - uy * far + ny * far);
  cairo_fill(cr);
  colour(cr, 0x4d6b3a);
  cairo_set_line_width(cr, c.scale);
  cairo_move_to(cr, a->x - ux * far, a->y - uy * far);
  cairo_line_to(cr, a->x + ux * far, a->y + uy * far);
  cairo_stroke(cr);
}

// A labelled vertical post from tilt low up to tilt high.
void draw_post(const Canvas& c, const View& view, double pan, const char* label) {
  auto foot = at(c, view, pan, 1), top = at(c, view, pan, -4);
  if (!foot || !top) return;
  colour(c.cr, 0x333333);
  cairo_set_line_width(c.cr, 3 * c.scale);
  cairo_move_to(c.cr, foot->x, foot->y);
  cairo_line_to(c.cr, top->x, top->y);
  cairo_stroke(c.cr);
  cairo_move_to(c.cr, top->x + 4 * c.scale, top->y + 4 * c.scale);
  cairo_show_text(c.cr, label);
}

// A landmark: a disc one degree across, a cross at its point, its name.
void draw_landmark(const Canvas& c, const View& view, const Landmark& mark) {
  auto centre = at(c, view, mark.pan, mark.tilt);
  if (!centre) return;
  auto edge = at(c, view, mark.pan, mark.tilt - 1);
  double r = std::max(5 * c.scale, edge ? std::hypot(edge->x - centre->x, edge->y - centre->y) : 0.0);
  r = std::min(r, c.w + c.h);  // a landmark at the edge of sight stays a drawable size
  cairo_t* cr = c.cr;
  cairo_set_source_rgb(cr, mark.r / 255.0, mark.g / 255.0, mark.b / 255.0);
  cairo_arc(cr, centre->x, centre->y, r, 0, 2 * M_PI);
  cairo_fill(cr);
  colour(cr, 0xffffff);
  cairo_set_line_width(cr, c.scale);
  cairo_move_to(cr, centre->x - r, centre->y);
  cairo_line_to(cr, centre->x + r, centre->y);
  cairo_move_to(cr, centre->x, centre->y - r);
  cairo_line_to(cr, centre->x, centre->y + r);
  cairo_stroke(cr);
  colour(cr, 0x111111);
  cairo_move_to(cr, centre->x + r + 3 * c.scale, centre->y - r);
  cairo_show_text(cr, mark.name);
}

// The simulated person: feet where they stand, 1.8 m tall at their distance.
void draw_person(const Canvas& c, const View& view, Point person) {
  double dist = person.y > 0.5 ? kMastHeight / tan(person.y * kRad) : 700;
  double rise = atan(1.8 / dist) / kRad;
  auto feet = at(c, view, person.x, person.y), head = at(c, view, person.x, person.y - rise);
  if (!feet || !head) return;
  double tall = std::min(std::max(12 * c.scale, std::hypot(head->x - feet->x, head->y - feet->y)), 4 * c.h);
  double x = feet->x, y = feet->y;
  cairo_t* cr = c.cr;
  colour(cr, 0xe67e22);
  cairo_set_line_width(cr, std::max(2 * c.scale, tall / 12));
  cairo_move_to(cr, x - tall / 5, y);
  cairo_line_to(cr, x, y - tall * 0.45);
  cairo_line_to(cr, x + tall / 5, y);
  cairo_move_to(cr, x, y - tall * 0.45);
  cairo_line_to(cr, x, y - tall * 0.8);
  cairo_move_to(cr, x - tall / 4, y - tall * 0.65);
  cairo_line_to(cr, x + tall / 4, y - tall * 0.65);
  cairo_stroke(cr);
  cairo_arc(cr, x, y - tall * 0.9, tall * 0.1, 0, 2 * M_PI);
  cairo_fill(cr);
}

// White text with a black outline, left-aligned at x or right-aligned to it.
// The outline is the text drawn black around its place: glyphs come from
// cairo's cache, where stroking the text's path would cost a third of a frame.
void overlay_text(const Canvas& c, const std::string& text, double x, double y, bool right) {
  cairo_t* cr = c.cr;
  cairo_text_extents_t ext;
  cairo_text_extents(cr, text.c_str(), &ext);
  double left = right ? x - ext.x_advance : x, d = 1.5 * c.scale;
  colour(cr, 0x000000);
  for (int dx = -1; dx <= 1; ++dx) {
    for (int dy = -1; dy <= 1; ++dy) {
      cairo_move_to(cr, left + dx * d, y + dy * d);
      cairo_show_text(cr, text.c_str());
    }
  }
  colour(cr, 0xffffff);
  cairo_move_to(cr, left, y);
  cairo_show_text(cr, text.c_str());
}

// The centre mark, the overlay texts and, with slewd gone, the "no head" mark.
void draw_marks(const Canvas& c, const HeadView& head) {
  cairo_t* cr = c.cr;
  cairo_set_source_rgba(cr, 1, 1, 1, 0.8);
  cairo_set_line_width(cr, c.scale);
  double cx = c.w / 2, cy = c.h / 2, arm = 12 * c.scale;
  cairo_move_to(cr, cx - arm, cy);
  cairo_line_to(cr, cx + arm, cy);
  cairo_move_to(cr, cx, cy - arm);
  cairo_line_to(cr, cx, cy + arm);
  cairo_stroke(cr);
  cairo_select_font_face(cr, "monospace", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(cr, 16 * c.scale);
  overlay_text(c, head.osd_preset, 12 * c.scale, 26 * c.scale, false);
  overlay_text(c, head.osd_direction, c.w - 12 * c.scale, 26 * c.scale, true);
  if (!head.no_head) return;
  // A black band across the lower picture with the words in red.
  cairo_set_source_rgba(cr, 0, 0, 0, 0.75);
  cairo_rectangle(cr, 0, c.h * 0.75, c.w, c.h * 0.15);
  cairo_fill(cr);
  cairo_set_font_size(cr, c.h * 0.1);
  cairo_text_extents_t ext;
  cairo_text_extents(cr, "no head", &ext);
  cairo_move_to(cr, (c.w - ext.x_advance) / 2, c.h * 0.865);
  cairo_set_source_rgb(cr, 1, 0.1, 0.1);
  cairo_show_text(cr, "no head");
}

}  // namespace

void render_frame(const HeadView& head, int width, int height, Frame* frame) {
  frame->width = width;
  frame->height = height;
  frame->stride = cairo_format_stride_for_width(CAIRO_FORMAT_RGB24, width);
  frame->bgrx.resize((size_t)frame->stride * height);  // a reused frame keeps its memory
  cairo_surface_t* surface =
      cairo_image_surface_create_for_data(frame->bgrx.data(), CAIRO_FORMAT_RGB24, width, height, frame->stride);
  cairo_t* cr = cairo_create(surface);
  Canvas c{cr, (double)width, (double)height, height / 360.0};
  const View& view = head.view;
  draw_horizon(c, view);
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, 13 * c.scale);
  for (int i = 0; i < 8; ++i) draw_post(c, view, pan_deg((head.east + i * 8191) % kSteps), kCompass[i]);
  for (const Landmark& mark : kLandmarks) draw_landmark(c, view, mark);
  if (head.person) draw_person(c, view, *head.person);
  draw_marks(c, head);
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  cairo_surface_destroy(surface);
}

std::vector<uint8_t> to_rgb(const Frame& frame) {
  std::vector<uint8_t> rgb((size_t)frame.width * frame.height * 3);
  for (int y = 0; y < frame.height; ++y) {
    const uint8_t* row = frame.bgrx.data() + (size_t)y * frame.stride;
    uint8_t* out = rgb.data() + (size_t)y * frame.width * 3;
    for (int x = 0; x < frame.width; ++x) {
      out[3 * x] = row[4 * x + 2];
      out[3 * x + 1] = row[4 * x + 1];
      out[3 * x + 2] = row[4 * x];
    }
  }
  return rgb;
}

}  // namespace render
