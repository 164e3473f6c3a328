// The infrared / radio bridge daemon on the same router (a client of ours).
service HalvexServ {
  string request(1: string input)
}
