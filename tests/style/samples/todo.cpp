// expect: todo
// TODO: someone should.
// TODO(ann): an owner is enough.
