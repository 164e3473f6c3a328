// The daemon's own service: one JSON command in, one JSON reply out.
namespace cpp zorvik

service Zorvik {
  string request(1: string parameter)
}
