#include "blobs.h"

#include <limits>
#include <string>

#include <pybind11/numpy.h>

#include "bindings.h"

namespace py = pybind11;

namespace nerva_python {

void Blobs::reserve(size_t n)
{
    ident.reserve(n);
    bbox.reserve(4 * n);
    npix.reserve(n);
    center.reserve(2 * n);
    centroid.reserve(2 * n);
    if (!has_measures) return;
    moments.reserve(3 * n);
    for (auto* v : {&orientation, &major_axis, &minor_axis, &eccentricity, &perimeter, &extent}) v->reserve(n);
    boundary_edges.reserve(n);
}

void Blobs::clear()
{
    ident.clear();
    bbox.clear();
    npix.clear();
    center.clear();
    centroid.clear();
    dropped = 0;
    moments.clear();
    for (auto* v : {&orientation, &major_axis, &minor_axis, &eccentricity, &perimeter, &extent}) v->clear();
    boundary_edges.clear();
    track.clear();
}

void Blobs::append(const nerva::RLEblob& b)
{
    ident.push_back(b.ident);
    bbox.insert(bbox.end(), {b.bbox.xmin, b.bbox.ymin, b.bbox.xmax, b.bbox.ymax});
    npix.push_back(b.npix);
    center.insert(center.end(), {b.xc, b.yc});
    // A sampled blob may hold no pixel: it has no centroid.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    centroid.push_back(b.npix > 0 ? b.sumx / b.npix : nan);
    centroid.push_back(b.npix > 0 ? b.sumy / b.npix : nan);
}

void Blobs::append_shape(const nerva::blob_shape* m)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    moments.insert(moments.end(), {m ? m->mu20 : nan, m ? m->mu11 : nan, m ? m->mu02 : nan});
    orientation.push_back(m ? m->orientation : nan);
    major_axis.push_back(m ? m->major_axis : nan);
    minor_axis.push_back(m ? m->minor_axis : nan);
    eccentricity.push_back(m ? m->eccentricity : nan);
    perimeter.push_back(m ? m->perimeter : nan);
    extent.push_back(m ? m->extent : nan);
    boundary_edges.push_back(m ? m->boundary_edges : -1);
}

namespace {

// One blob, as indexing and iteration give it.
struct Blob {
    int32_t ident, xmin, ymin, xmax, ymax, npix, xc, yc;
    double cx, cy;
};

// A read-only view of one column, owned by the Blobs object.
template <typename T>
py::array column(const std::vector<T>& data, size_t rows, size_t cols, py::handle owner)
{
    std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(rows)};
    if (cols > 1) shape.push_back(static_cast<py::ssize_t>(cols));
    py::array a(py::dtype::of<T>(), shape, {}, data.data(), owner);
    py::detail::array_proxy(a.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return a;
}

// A property getter for one column of `cols` values per blob.
template <typename T>
auto column_of(std::vector<T> Blobs::*member, size_t cols)
{
    return [member, cols](py::object self) {
        const Blobs& b = self.cast<const Blobs&>();
        return column(b.*member, b.size(), cols, self);
    };
}

// The same for a shape measure, which only a segmenter asked for them fills.
template <typename T>
auto measure_of(std::vector<T> Blobs::*member, size_t cols)
{
    return [member, cols](py::object self) {
        const Blobs& b = self.cast<const Blobs&>();
        if (!b.has_measures)
            throw py::attribute_error(
                "shape measures were not computed: pass measures=True to the Segmenter or to "
                "nerva.blobs()");
        return column(b.*member, b.size(), cols, self);
    };
}

Blob blob_at(const Blobs& b, py::ssize_t i)
{
    const py::ssize_t n = static_cast<py::ssize_t>(b.size());
    if (i < 0) i += n;
    if (i < 0 || i >= n) throw py::index_error("blob index out of range (" + std::to_string(n) + " blobs)");
    const size_t k = static_cast<size_t>(i);
    const int32_t* box = &b.bbox[4 * k];
    return Blob{b.ident[k],
                box[0],
                box[1],
                box[2],
                box[3],
                b.npix[k],
                b.center[2 * k],
                b.center[2 * k + 1],
                b.centroid[2 * k],
                b.centroid[2 * k + 1]};
}

}  // namespace

void bind_blobs(py::module_& m)
{
    py::class_<Blob>(m, "Blob", "One blob of a frame: a read-only record.")
        .def_readonly("ident", &Blob::ident, "Index of the blob in the segmenter's pool for that frame (not a track).")
        .def_readonly("xmin", &Blob::xmin)
        .def_readonly("ymin", &Blob::ymin)
        .def_readonly("xmax", &Blob::xmax, "Last column, inclusive.")
        .def_readonly("ymax", &Blob::ymax, "Last row, inclusive.")
        .def_property_readonly("width", [](const Blob& b) { return b.xmax - b.xmin + 1; })
        .def_property_readonly("height", [](const Blob& b) { return b.ymax - b.ymin + 1; })
        .def_readonly("npix", &Blob::npix, "Number of foreground pixels.")
        .def_readonly("xc", &Blob::xc, "Mean pixel column, truncated toward zero (as nerva-blobs writes it).")
        .def_readonly("yc", &Blob::yc, "Mean pixel row, truncated toward zero.")
        .def_property_readonly(
            "bbox", [](const Blob& b) { return py::make_tuple(b.xmin, b.ymin, b.xmax, b.ymax); },
            "(xmin, ymin, xmax, ymax), bounds included.")
        .def_property_readonly(
            "centroid", [](const Blob& b) { return py::make_tuple(b.cx, b.cy); },
            "(x, y) mean of the pixel coordinates; NaN for a sampled blob without pixels.")
        .def("__repr__", [](const Blob& b) {
            return "Blob(ident=" + std::to_string(b.ident) + ", bbox=(" + std::to_string(b.xmin) + ", " +
                   std::to_string(b.ymin) + ", " + std::to_string(b.xmax) + ", " + std::to_string(b.ymax) +
                   "), npix=" + std::to_string(b.npix) + ")";
        });

    py::class_<Blobs>(m, "Blobs", py::dynamic_attr(), R"doc(The blobs of one frame, in the segmenter's list order.

Owned copies: they stay valid after the next frame. Columns are read-only
numpy arrays with one row per blob; ``len()``, indexing and iteration give
:class:`Blob` records.

Boxes are ``(xmin, ymin, xmax, ymax)`` with both corners inside the blob,
coordinates ``x`` = column and ``y`` = row; see docs/python.md for how they
compare with a region of interest, cv2 and scikit-image.

Examples
--------
>>> import numpy as np, nerva
>>> mask = np.zeros((6, 8), np.uint8)
>>> mask[1:3, 1:4] = 1
>>> mask[4, 6] = 1
>>> blobs = nerva.blobs(mask)
>>> len(blobs), blobs.npix.tolist()
(2, [6, 1])
>>> blobs.bbox.tolist()
[[1, 1, 3, 2], [6, 4, 6, 4]]
>>> blobs.centroid_rc[0].tolist()
[1.5, 2.0]
>>> blobs.truncated, blobs.dropped
(False, 0))doc")
        .def("__len__", &Blobs::size)
        .def("__getitem__", &blob_at, py::arg("index"))
        .def("__iter__",
             [](py::object self) {
                 const Blobs& b = self.cast<const Blobs&>();
                 py::list items;
                 for (size_t i = 0; i < b.size(); ++i) items.append(blob_at(b, static_cast<py::ssize_t>(i)));
                 return py::iter(items);
             })
        .def("__repr__",
             [](const Blobs& b) {
                 return "<nerva.Blobs: " + std::to_string(b.size()) + " blobs" +
                        (b.dropped > 0 ? ", " + std::to_string(b.dropped) + " dropped beyond the cap" : "") + ">";
             })
        .def_property_readonly("bbox", column_of(&Blobs::bbox, 4),
                               "N x 4 int32: xmin, ymin, xmax, ymax, bounds included.")
        .def_property_readonly("npix", column_of(&Blobs::npix, 1), "N int32: foreground pixels per blob.")
        .def_property_readonly("centroid", column_of(&Blobs::centroid, 2),
                               "N x 2 float64: mean pixel column and row (NaN for a sampled blob without pixels).")
        .def_property_readonly(
            "centroid_rc",
            [](const Blobs& b) {
                py::array_t<double> rc({static_cast<py::ssize_t>(b.size()), py::ssize_t{2}});
                auto out = rc.mutable_unchecked<2>();
                for (size_t i = 0; i < b.size(); ++i) {
                    out(static_cast<py::ssize_t>(i), 0) = b.centroid[2 * i + 1];
                    out(static_cast<py::ssize_t>(i), 1) = b.centroid[2 * i];
                }
                return rc;
            },
            "N x 2 float64: mean pixel row and column, the order of scikit-image's regionprops centroid (a copy).")
        .def_property_readonly("center", column_of(&Blobs::center, 2),
                               "N x 2 int32: the centroid truncated toward zero, as nerva-blobs writes xc, yc.")
        .def_property_readonly(
            "track",
            [](py::object self) -> py::object {
                const Blobs& b = self.cast<const Blobs&>();
                if (b.track.size() != b.size()) return py::none();
                return column(b.track, b.size(), 1, self);
            },
            "N int32: each blob's track identity after Tracker.update (0: none yet), else None.")
        .def_property_readonly("ident", column_of(&Blobs::ident, 1),
                               "N int32: each blob's index in the segmenter's pool for that frame.")
        .def_property_readonly(
            "truncated", [](const Blobs& b) { return b.dropped > 0; },
            "True when the frame held more blobs than the segmenter's 2000-blob pool: the last blob stands for the "
            "last region and the regions between are lost (see dropped).")
        .def_property_readonly(
            "dropped", [](const Blobs& b) { return b.dropped; },
            "Number of regions lost beyond the 2000-blob pool (0 for a complete frame): len(blobs) + dropped is "
            "the number of regions the size filter kept.")
        .def_property_readonly(
            "moments", measure_of(&Blobs::moments, 3),
            "N x 3 float64: central second moments per pixel, mu20 = mean (x - xc)^2, mu11 = mean (x - xc)(y - yc), "
            "mu02 = mean (y - yc)^2 (x column, y row). Needs measures=True, as do the columns below.")
        .def_property_readonly("orientation", measure_of(&Blobs::orientation, 1),
                               "N float64: angle of the major axis from the x axis, radians in [-pi/2, pi/2], "
                               "positive towards +y (clockwise on screen); 0 when the moments have no direction.")
        .def_property_readonly("major_axis", measure_of(&Blobs::major_axis, 1),
                               "N float64: length of the major axis of the ellipse with the same second moments.")
        .def_property_readonly("minor_axis", measure_of(&Blobs::minor_axis, 1), "N float64: length of its minor axis.")
        .def_property_readonly("eccentricity", measure_of(&Blobs::eccentricity, 1),
                               "N float64: eccentricity of that ellipse, 0 (circle) to 1 (line).")
        .def_property_readonly("perimeter", measure_of(&Blobs::perimeter, 1),
                               "N float64: boundary length estimated from the border pixels, as scikit-image's "
                               "regionprops perimeter (see docs/python.md).")
        .def_property_readonly("boundary_edges", measure_of(&Blobs::boundary_edges, 1),
                               "N int64: pixel edges between the blob and the rest, holes included (a single pixel "
                               "has 4).")
        .def_property_readonly("extent", measure_of(&Blobs::extent, 1),
                               "N float64: pixels over box area, npix / (width * height).")
        .def(
            "as_cv2_stats",
            [](const Blobs& b) {
                const size_t n = b.size();
                py::array_t<int32_t> stats({static_cast<py::ssize_t>(n), py::ssize_t{5}});
                py::array_t<double> centroids({static_cast<py::ssize_t>(n), py::ssize_t{2}});
                auto s = stats.mutable_unchecked<2>();
                auto c = centroids.mutable_unchecked<2>();
                for (size_t i = 0; i < n; ++i) {
                    const int32_t* box = &b.bbox[4 * i];
                    const py::ssize_t r = static_cast<py::ssize_t>(i);
                    s(r, 0) = box[0];
                    s(r, 1) = box[1];
                    s(r, 2) = box[2] - box[0] + 1;
                    s(r, 3) = box[3] - box[1] + 1;
                    s(r, 4) = b.npix[i];
                    c(r, 0) = b.centroid[2 * i];
                    c(r, 1) = b.centroid[2 * i + 1];
                }
                return py::make_tuple(stats, centroids);
            },
            R"doc(The blobs as cv2.connectedComponentsWithStats lays them out, without the background row.

Returns (stats, centroids): stats N x 5 int32 with the columns
cv2.CC_STAT_LEFT, TOP, WIDTH, HEIGHT, AREA; centroids N x 2 float64.)doc");
}

}  // namespace nerva_python
