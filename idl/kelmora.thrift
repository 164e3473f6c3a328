// The sibling home service on the same router (a client of ours).
namespace cpp kelmora

service Kelmora {
  string request(1: string parameter)
}
