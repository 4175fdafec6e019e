// The Swift half of the on-device model bridge: FoundationModels behind plain C symbols, so the
// C++ side of the kit needs no Swift. Built on every Apple system; the framework calls compile
// only where the SDK has FoundationModels and run only on macOS 26 and later.
import Foundation

#if canImport(FoundationModels)
import FoundationModels
#endif

/// Keeps a Swift value alive behind an opaque pointer owned by C++.
private final class Box {
    let value: Any
    init(_ value: Any) { self.value = value }
}

private func retained(_ value: Any) -> UnsafeMutableRawPointer {
    Unmanaged.passRetained(Box(value)).toOpaque()
}

private func unboxed(_ handle: UnsafeMutableRawPointer) -> Any {
    Unmanaged<Box>.fromOpaque(handle).takeUnretainedValue().value
}

public typealias SagelyCompletion =
    @convention(c) (UnsafeMutableRawPointer?, Int32, UnsafePointer<CChar>?) -> Void
public typealias SagelySnapshot =
    @convention(c) (UnsafeMutableRawPointer?, UnsafePointer<CChar>?) -> Void
public typealias SagelyToolCall =
    @convention(c) (
        UnsafeMutableRawPointer?, UnsafePointer<CChar>?, UnsafePointer<CChar>?,
        UnsafeMutableRawPointer?
    ) -> Void

/// A tool call waiting for the C++ side's answer (nil: cancelled). The C++ side answers every
/// call exactly once, a stopped response's calls included, so the wait needs no cancellation
/// handler of its own (two resumes would be fatal).
private final class ToolReply: @unchecked Sendable {
    let continuation: CheckedContinuation<String?, Never>
    init(_ continuation: CheckedContinuation<String?, Never>) { self.continuation = continuation }
}

@_cdecl("sagely_fm_tool_reply")
public func sagelyFMToolReply(_ reply: UnsafeMutableRawPointer, _ output: UnsafePointer<CChar>?) {
    let waiting = Unmanaged<ToolReply>.fromOpaque(reply).takeRetainedValue()
    waiting.continuation.resume(returning: output.map { String(cString: $0) })
}

@_cdecl("sagely_fm_release")
public func sagelyFMRelease(_ handle: UnsafeMutableRawPointer?) {
    guard let handle else { return }
    Unmanaged<Box>.fromOpaque(handle).release()
}

@_cdecl("sagely_fm_default_model")
public func sagelyFMDefaultModel() -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        return retained(SystemLanguageModel.default)
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_content_tagging_model")
public func sagelyFMContentTaggingModel() -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        return retained(SystemLanguageModel(useCase: .contentTagging, guardrails: .default))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_adapter_model")
public func sagelyFMAdapterModel(_ name: UnsafePointer<CChar>) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        guard let adapter = try? SystemLanguageModel.Adapter(name: String(cString: name)) else {
            return nil
        }
        return retained(SystemLanguageModel(adapter: adapter, guardrails: .default))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_adapter_file_model")
public func sagelyFMAdapterFileModel(_ path: UnsafePointer<CChar>) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *) {
        let url = URL(fileURLWithPath: String(cString: path))
        guard let adapter = try? SystemLanguageModel.Adapter(fileURL: url) else { return nil }
        return retained(SystemLanguageModel(adapter: adapter, guardrails: .default))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_model_availability")
public func sagelyFMModelAvailability(_ model: UnsafeMutableRawPointer) -> Int32 {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let model = unboxed(model) as? SystemLanguageModel {
        switch model.availability {
        case .available:
            return 0
        case .unavailable(.deviceNotEligible):
            return 1
        case .unavailable(.appleIntelligenceNotEnabled):
            return 2
        case .unavailable(.modelNotReady):
            return 3
        default:
            return 4
        }
    }
    #endif
    return 1
}

@_cdecl("sagely_fm_session_create")
public func sagelyFMSessionCreate(_ model: UnsafeMutableRawPointer) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let model = unboxed(model) as? SystemLanguageModel {
        // The system text travels inside the prompt, so the session has no instructions.
        return retained(LanguageModelSession(model: model, tools: []))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_session_create_with_tools")
public func sagelyFMSessionCreateWithTools(
    _ model: UnsafeMutableRawPointer, _ tools: UnsafePointer<CChar>,
    _ context: UnsafeMutableRawPointer?, _ onToolCall: SagelyToolCall
) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let model = unboxed(model) as? SystemLanguageModel,
        let list = try? JSONSerialization.jsonObject(with: Data(String(cString: tools).utf8))
            as? [[String: Any]]
    {
        var bridged: [any Tool] = []
        for tool in list {
            guard let name = tool["name"] as? String,
                let description = tool["description"] as? String,
                let node = tool["parameters"] as? [String: Any],
                let root = sagelySchema(node),
                let parameters = try? GenerationSchema(root: root, dependencies: [])
            else { return nil }
            bridged.append(
                SagelyTool(
                    name: name, description: description, parameters: parameters,
                    context: UInt(bitPattern: context), onToolCall: onToolCall))
        }
        return retained(LanguageModelSession(model: model, tools: bridged))
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_session_respond")
public func sagelyFMSessionRespond(
    _ session: UnsafeMutableRawPointer, _ prompt: UnsafePointer<CChar>, _ temperature: Double,
    _ maximumResponseTokens: Int64, _ context: UnsafeMutableRawPointer?,
    _ completion: SagelyCompletion
) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let session = unboxed(session) as? LanguageModelSession {
        let text = String(cString: prompt)
        let options = sagelyOptions(temperature, maximumResponseTokens)
        return sagelyRun(context, completion) {
            try await session.respond(to: text, options: options).content
        }
    }
    #endif
    return nil
}

@_cdecl("sagely_fm_session_stream")
public func sagelyFMSessionStream(
    _ session: UnsafeMutableRawPointer, _ prompt: UnsafePointer<CChar>, _ temperature: Double,
    _ maximumResponseTokens: Int64, _ context: UnsafeMutableRawPointer?,
    _ snapshot: SagelySnapshot, _ completion: SagelyCompletion
) -> UnsafeMutableRawPointer? {
    #if canImport(FoundationModels)
    if #available(macOS 26.0, *), let session = unboxed(session) as? LanguageModelSession {
        let text = String(cString: prompt)
        let options = sagelyOptions(temperature, maximumResponseTokens)
        return sagelyRun(context, completion) {
            // Each snapshot holds the whole response so far, not a delta; the C++ side turns
            // them into pieces.
            var latest = ""
            for try await partial in session.streamResponse(to: text, options: options) {
                latest = partial.content
                latest.withCString { snapshot(context, $0) }
            }
            return latest
        }
    }
    #endif
    return nil
}

#if canImport(FoundationModels)
/// A host action as a tool whose schema is known only at run time: the arguments arrive as
/// GeneratedContent and go to the C++ side as JSON text, which checks them against the action's
/// JSON Schema (GeneratedContent as Arguments is the pattern public bridges use; Apple's text
/// saying it conforms to ConvertibleFromGeneratedContent was not seen).
@available(macOS 26.0, *)
private struct SagelyTool: Tool, @unchecked Sendable {
    typealias Arguments = GeneratedContent
    typealias Output = String

    let name: String
    let description: String
    let parameters: GenerationSchema
    let context: UInt  // the C++ side's pointer, as a number
    let onToolCall: SagelyToolCall

    @concurrent func call(arguments: GeneratedContent) async throws -> String {
        let json = arguments.jsonString
        let output: String? = await withCheckedContinuation { continuation in
            let reply = Unmanaged.passRetained(ToolReply(continuation)).toOpaque()
            name.withCString { tool in
                json.withCString { arguments in
                    onToolCall(UnsafeMutableRawPointer(bitPattern: context), tool, arguments, reply)
                }
            }
        }
        guard let output else { throw CancellationError() }
        return output
    }
}

/// One node of the C++ side's schema description, already checked there, as the framework's
/// run-time schema; nil for a node it does not know.
@available(macOS 26.0, *)
private func sagelySchema(_ node: [String: Any]) -> DynamicGenerationSchema? {
    let description = node["description"] as? String
    switch node["kind"] as? String {
    case "object":
        guard let name = node["name"] as? String,
            let members = node["properties"] as? [[String: Any]]
        else { return nil }
        var properties: [DynamicGenerationSchema.Property] = []
        for member in members {
            guard let memberName = member["name"] as? String,
                let memberNode = member["schema"] as? [String: Any],
                let schema = sagelySchema(memberNode)
            else { return nil }
            properties.append(
                DynamicGenerationSchema.Property(
                    name: memberName, description: member["description"] as? String,
                    schema: schema, isOptional: member["optional"] as? Bool ?? false))
        }
        return DynamicGenerationSchema(name: name, description: description, properties: properties)
    case "choices":
        // The string-choice form of init(name:description:anyOf:) is not confirmed from Apple's
        // text; the C++ side checks every value against the enum whatever the model writes.
        guard let name = node["name"] as? String, let choices = node["choices"] as? [String]
        else { return nil }
        return DynamicGenerationSchema(name: name, description: description, anyOf: choices)
    case "array":
        guard let items = node["items"] as? [String: Any], let schema = sagelySchema(items)
        else { return nil }
        // No bounds: minimumElements and maximumElements are left to their defaults (that
        // they have defaults is not confirmed from Apple's text).
        return DynamicGenerationSchema(arrayOf: schema)
    case "string":
        return DynamicGenerationSchema(type: String.self)
    case "integer":
        return DynamicGenerationSchema(type: Int.self)
    case "number":
        return DynamicGenerationSchema(type: Double.self)
    case "boolean":
        return DynamicGenerationSchema(type: Bool.self)
    default:
        return nil
    }
}

@available(macOS 26.0, *)
private func sagelyOptions(_ temperature: Double, _ maximumResponseTokens: Int64)
    -> GenerationOptions
{
    GenerationOptions(
        sampling: nil, temperature: temperature,
        maximumResponseTokens: Int(maximumResponseTokens))
}

/// Runs a response on a task, which it returns: the reply's text, or the failure, goes to
/// `completion`.
@available(macOS 26.0, *)
private func sagelyRun(
    _ context: UnsafeMutableRawPointer?, _ completion: SagelyCompletion,
    _ respond: @escaping () async throws -> String
) -> UnsafeMutableRawPointer {
    let task = Task {
        do {
            let reply = try await respond()
            reply.withCString { completion(context, 0, $0) }
        } catch {
            sagelyReportFailure(error, context, completion)
        }
    }
    return retained(task)
}

/// Ends a response that failed: its outcome code and description go to `completion`.
@available(macOS 26.0, *)
private func sagelyReportFailure(
    _ error: any Error, _ context: UnsafeMutableRawPointer?, _ completion: SagelyCompletion
) {
    if let error = error as? LanguageModelSession.GenerationError {
        // What macOS 26 throws, and macOS 27 to apps built with the macOS 26 SDK.
        let outcome: Int32
        if case .exceededContextWindowSize = error { outcome = 1 } else { outcome = 2 }
        error.localizedDescription.withCString { completion(context, outcome, $0) }
    } else if error is CancellationError {
        completion(context, 3, nil)
    } else {
        let outcome: Int32 = sagelyIsContextSizeExceeded(error) ? 1 : 4
        error.localizedDescription.withCString { completion(context, outcome, $0) }
    }
}
#endif

/// Whether the error is macOS 27's context-window overflow, which apps built with the macOS 27
/// SDK receive as `LanguageModelError.contextSizeExceeded(_:)` in place of
/// `GenerationError.exceededContextWindowSize(_:)`. The type exists only in that SDK, whose
/// Swift compiler is 6.4 or later (the macOS 26 SDKs come with Swift 6.2 and 6.3).
private func sagelyIsContextSizeExceeded(_ error: any Error) -> Bool {
    #if canImport(FoundationModels) && compiler(>=6.4)
    if #available(macOS 27.0, *), let error = error as? LanguageModelError,
        case .contextSizeExceeded = error
    {
        return true
    }
    #endif
    return false
}

@_cdecl("sagely_fm_task_cancel")
public func sagelyFMTaskCancel(_ task: UnsafeMutableRawPointer) {
    (unboxed(task) as? Task<Void, Never>)?.cancel()
}
