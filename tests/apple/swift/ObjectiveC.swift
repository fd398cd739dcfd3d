// What Swift's importer wants of the module ObjectiveC beside the headers, in this project's own words. Only to
// be type-checked.
@_exported import ObjectiveC

public struct ObjCBool: ExpressibleByBooleanLiteral {
  public let boolValue: Bool
  public init(_ value: Bool) { boolValue = value }
  public init(booleanLiteral value: Bool) { self.init(value) }
}
public func _convertBoolToObjCBool(_ value: Bool) -> ObjCBool { ObjCBool(value) }
public func _convertObjCBoolToBool(_ value: ObjCBool) -> Bool { value.boolValue }

public struct Selector {
  private let pointer: OpaquePointer
}

extension NSObject: Equatable, Hashable {
  public static func == (left: NSObject, right: NSObject) -> Bool { left === right }
  public func hash(into hasher: inout Hasher) {}
}
